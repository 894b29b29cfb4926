// Measures the package in node beside what pages write themselves and beside the library's native code: one cloud, one
// run, everybody in turns, every result checked. Tools/web.sh --bench builds what is measured and starts this.
//
//   --sizes 10000,100000   numbers of points; by default those of kSizes
//   --write FILE           the medians, as JSON, into a file that Benchmarks/report.py reads
//
// Times are processor times, of which other work on the machine takes none, and everybody sorts on one thread: all but
// the package on two threads, whose times are those that pass, since a thread that waits for the other takes processor
// time too. So these say something only on a machine that does nothing else. In a turn everybody sorts as many frames
// as it says in kSizes, after one that is not measured, as the camera goes round. A sort that compares in JavaScript or
// packs takes fewer frames and turns. Medians are those of turns; ratios are formed within a turn. Before the first
// turn everybody sorts until the engine has compiled it: code that is compiled quickly runs first, and takes up to
// three times as long as optimised code, which a second thread makes meanwhile.

import { spawn } from "node:child_process";
import { mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { cpus, totalmem } from "node:os";
import { createInterface } from "node:readline";
import { parseArgs } from "node:util";

import { camera, fillCloud } from "./cloud.mjs";
import { ComparatorSort, CountingSort16, PackedSort } from "./javascript_sorts.mjs";

const kBuild = process.env.VEXMOOR_WEB_BUILD;
const kSizes = {
	10000: { frames: 100, turns: 31 },
	100000: { frames: 10, turns: 31 },
	1000000: { frames: 2, turns: 21 },
	4000000: { frames: 1, turns: 7 },
};
const kWarmUp = { rounds: 4, milliseconds: 60, pause: 150 }; // of each competitor; pauses let the other thread compile
const kSlow = { frames: 1, turns: 3 }; // of sorts that take seconds

function fail(message) {
	process.stderr.write(`bench.mjs: ${message}\n`);
	process.exit(2);
}

// Competitors. Each has a name, sort(cameras), which returns the nanoseconds taken, and check(), which throws.

class InNode {
	constructor(name, sorter, check, isSlow = false) {
		this.name = name;
		this.sorter = sorter;
		this.isSlow = isSlow;
		this.check = () => check(this.sorter.indices);
	}

	async sort(cameras) {
		const begin = process.cpuUsage();
		for (const position of cameras) this.sorter.sort(position);
		const { user, system } = process.cpuUsage(begin);
		return 1000 * (user + system); // given in microseconds
	}
}

// Two threads sort. A worker that waits for the next frame does not sleep yet.
class InNodeOnThreads extends InNode {
	async sort(cameras) {
		const begin = performance.now();
		for (const position of cameras) this.sorter.sort(position);
		return 1e6 * (performance.now() - begin);
	}

	end() {
		this.sorter.end();
	}
}

class Native {
	name = "native";

	constructor(positions, check) {
		const path = `${kBuild}/positions.bin`;
		writeFileSync(path, positions);
		this.process = spawn(`${kBuild}/native`, [path], { stdio: ["pipe", "pipe", "inherit"] });
		this.answers = createInterface({ input: this.process.stdout })[Symbol.asyncIterator]();
		this.check = () => check(this.hash);
	}

	async sort(cameras) {
		this.process.stdin.write(`${cameras.length} ${cameras.map((position) => position.join(" ")).join(" ")}\n`);
		const { value } = await this.answers.next();
		const [nanoseconds, hash] = value.split(" ").map(Number);
		this.hash = hash;
		return nanoseconds;
	}

	end() {
		this.process.stdin.end();
	}
}

// The package's sorter, with the positions where it wants them.
async function packageSorter(options, positions) {
	const { load } = await import(`${kBuild}/package/vexmoor.js`);
	const vexmoor = await load(options);
	if (vexmoor.threads !== (options.threads ?? 1)) fail(`${vexmoor.threads} threads sort, not ${options.threads}`);
	const sorter = vexmoor.createPointSorter({ capacity: positions.length / 3 });
	sorter.positions.set(positions);
	return {
		sort: (position) => sorter.sort(positions.length / 3, position),
		get indices() {
			return sorter.indices;
		},
		end: () => vexmoor.endThreads(),
	};
}

// The counting sort in C, with all arrays in its memory.
async function countingSortInC(positions) {
	const count = positions.length / 3;
	const { instance } = await WebAssembly.instantiate(readFileSync(`${kBuild}/counting_sort.wasm`));
	const { heap_base, memory, sort } = instance.exports;
	let end = heap_base();
	const place = (bytes) => {
		const begin = end;
		end += Math.ceil(bytes / 64) * 64;
		return begin;
	};
	const places = [place(12 * count), place(4 * count), place(2 * count), place(4 * count)];
	memory.grow(Math.max(0, Math.ceil((end - memory.buffer.byteLength) / 65536)));
	new Float32Array(memory.buffer, places[0], 3 * count).set(positions);
	return {
		sort: ([x, y, z]) => sort(...places, count, x, y, z),
		indices: new Uint32Array(memory.buffer, places[3], count),
	};
}

// Checks.

// As in native.cpp.
function hash(indices) {
	let value = 2166136261;
	for (const index of indices) value = Math.imul(value ^ index, 16777619);
	return value >>> 0;
}

function checkPermutation(name, indices) {
	const seen = new Uint8Array(indices.length);
	for (const index of indices) {
		if (index >= seen.length || seen[index]++ !== 0) fail(`${name} has left out a point, or has it twice`);
	}
}

// The exact order: squared distances in single precision fall.
function exactOrder(name, positions, position) {
	const f = Math.fround;
	return (indices) => {
		checkPermutation(name, indices);
		let last = Infinity;
		for (const index of indices) {
			const x = f(positions[3 * index] - position[0]),
				y = f(positions[3 * index + 1] - position[1]),
				z = f(positions[3 * index + 2] - position[2]);
			const distance = f(f(f(x * x) + f(y * y)) + f(z * z));
			if (distance > last) fail(`${name} is not in order`);
			last = distance;
		}
	};
}

// Distances that JavaScript rounds once, where the library rounds every sum, may differ in their last bits; depths in
// steps by as much as a step.
function approximateOrder(name, positions, key, tolerance) {
	return (indices) => {
		checkPermutation(name, indices);
		let least = Infinity,
			most = -Infinity;
		for (let i = 0; i < indices.length; ++i) {
			const value = key(positions[3 * i], positions[3 * i + 1], positions[3 * i + 2]);
			least = Math.min(least, value);
			most = Math.max(most, value);
		}
		let last = -Infinity;
		for (const index of indices) {
			const value = key(positions[3 * index], positions[3 * index + 1], positions[3 * index + 2]);
			if (value < last - tolerance * (most - least)) fail(`${name} is not in order`);
			last = Math.max(last, value);
		}
	};
}

// Measuring.

function median(values) {
	const sorted = [...values].sort((a, b) => a - b);
	const middle = sorted.length >> 1;
	return sorted.length % 2 === 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

async function warmUp(competitors) {
	for (let round = 0; round < kWarmUp.rounds; ++round) {
		for (const competitor of competitors) {
			if (competitor.isSlow) continue;
			const begin = performance.now();
			do await competitor.sort([camera(round)]);
			while (performance.now() - begin < kWarmUp.milliseconds);
		}
		await new Promise((resolve) => setTimeout(resolve, kWarmUp.pause));
	}
}

async function measure(count, { frames, turns }) {
	const positions = new Float32Array(3 * count);
	fillCloud(positions);
	const last = camera(frames * turns); // every competitor's last frame, which is checked
	const [x, y, z] = last;
	const depth = (px, py, pz) => px * x + py * y + pz * z;
	const nearness = (px, py, pz) => -((px - x) ** 2 + (py - y) ** 2 + (pz - z) ** 2);
	const simd = new InNode(
		"simd",
		await packageSorter({ simd: true }, positions),
		exactOrder("simd", positions, last)
	);
	const onTwoCores = async () =>
		new InNodeOnThreads("two_threads", await packageSorter({ threads: 2 }, positions), (indices) => {
			if (hash(indices) !== hash(simd.sorter.indices)) fail("two threads have another order");
		});
	const competitors = [
		simd,
		...(cpus().length > 1 ? [await onTwoCores()] : []),
		new Native(positions, (value) => {
			if (value !== hash(simd.sorter.indices)) fail("native code has another order");
		}),
		new InNode(
			"counting_c",
			await countingSortInC(positions),
			approximateOrder("counting_c", positions, depth, 1.01 / 65535)
		),
		new InNode(
			"counting_js",
			new CountingSort16(positions),
			approximateOrder("counting_js", positions, depth, 1.01 / 65535)
		),
		new InNode(
			"no_simd",
			await packageSorter({ simd: false }, positions),
			exactOrder("no_simd", positions, last)
		),
		new InNode("packed", new PackedSort(positions), approximateOrder("packed", positions, nearness, 1e-6), true),
		new InNode(
			"comparator",
			new ComparatorSort(positions),
			approximateOrder("comparator", positions, nearness, 1e-6),
			true
		),
	];

	const times = new Map(competitors.map(({ name }) => [name, []]));
	const ratios = new Map(competitors.map(({ name }) => [name, []]));
	const ratiosToTwoThreads = new Map(competitors.map(({ name }) => [name, []]));
	await warmUp(competitors);
	for (let turn = 0; turn < turns; ++turn) {
		const cameras = Array.from({ length: frames }, (_, frame) => camera(turn * frames + frame + 1));
		const inTurn = new Map();
		for (const competitor of competitors) {
			if (competitor.isSlow && turn < turns - kSlow.turns) continue;
			const measured = competitor.isSlow ? cameras.slice(-kSlow.frames) : cameras;
			await competitor.sort([cameras[0]]);
			const nanoseconds = (await competitor.sort(measured)) / measured.length;
			inTurn.set(competitor.name, nanoseconds);
		}
		for (const [name, nanoseconds] of inTurn) {
			times.get(name).push(nanoseconds);
			ratios.get(name).push(nanoseconds / inTurn.get("simd"));
			ratiosToTwoThreads.get(name).push(nanoseconds / (inTurn.get("two_threads") ?? NaN));
		}
	}
	for (const competitor of competitors) competitor.check();
	for (const competitor of competitors) competitor.end?.();
	const ratio = (values) => Number(median(values).toPrecision(4));
	return Object.fromEntries(
		competitors.map(({ name }) => [
			name,
			{
				ns: Math.round(median(times.get(name))),
				ratio: ratio(ratios.get(name)),
				ratio_to_two_threads: ratio(ratiosToTwoThreads.get(name)), // null on a single core
			},
		])
	);
}

// What Benchmarks/report.py asks of a machine.
function machine() {
	const cpu = readFileSync("/proc/cpuinfo", "utf8");
	const field = (name) => cpu.match(new RegExp(`^${name}\\s*: (.*)$`, "m"))?.[1] ?? "";
	return {
		vendor: field("vendor_id"),
		model_name: field("model name").replaceAll("(R)", ""),
		family: field("cpu family"),
		model: field("model"),
		cores: cpus().length,
		memory: `${Math.round(totalmem() / 2 ** 30)} GiB`,
		node: process.version,
		v8: process.versions.v8,
		compilers: process.env.VEXMOOR_WEB_COMPILERS ?? "",
		date: new Date().toISOString().slice(0, 10),
	};
}

function options() {
	try {
		return parseArgs({ options: { sizes: { type: "string" }, write: { type: "string" } } }).values;
	} catch (error) {
		fail(error.message.split(". ")[0].replace(/\.?$/, ""));
	}
}

const { sizes = Object.keys(kSizes).join(","), write } = options();
const wanted = sizes.split(",").map(Number);
for (const count of wanted) {
	if (kSizes[count] === undefined)
		fail(`--sizes takes some of ${Object.keys(kSizes).join(", ")}, with commas between, not ${sizes}`);
}
const cases = {};
for (const count of wanted) {
	cases[count] = { turns: kSizes[count].turns, ...(await measure(count, kSizes[count])) };
	for (const [name, { ns, ratio, ratio_to_two_threads: ratioToTwo }] of Object.entries(cases[count])) {
		if (name !== "turns")
			console.log(
				`${String(count).padStart(8)}  ${name.padEnd(12)} ${(ns / 1e6).toFixed(3).padStart(9)} ms  x${ratio}` +
					`  beside two threads x${ratioToTwo}`
			);
	}
}
if (write !== undefined) {
	mkdirSync(write.replace(/[^/]*$/, "") || ".", { recursive: true });
	writeFileSync(write, `${JSON.stringify({ machine: machine(), cases }, null, "\t")}\n`);
	console.log(`the medians are in ${write}`);
}
