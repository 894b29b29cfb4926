// Sorts on several threads: the bytes of one thread, workers that stop, and where there are no threads.

import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { readFileSync } from "node:fs";
import { after, describe, test } from "node:test";
import { pathToFileURL } from "node:url";
import { Worker } from "node:worker_threads";

import { modelOrder, randomNumbers } from "./model.mjs";
import { kBuild, load } from "./package.mjs";

const { startThreads } = await import(`${kBuild}/package/vexmoor-threads.js`);

const kSharedFrom = 32768; // CThreadSort::kMinRecordCount in pv_thread_sort.h
const kCamera = [1, 2.5, -3];
const kQuad = [0, 1, 2, 0, 2, 3];

const one = await load();
const teams = await Promise.all([2, 3, 4].map((threads) => load({ threads })));
after(() => teams.forEach((team) => team.endThreads()));

test("there are as many threads as were asked for", () => {
	assert.deepEqual(
		[one, ...teams].map(({ threads }) => threads),
		[1, 2, 3, 4]
	);
	assert.ok(teams.every((team) => team.simd && team.version === one.version));
});

function bytesOf(view) {
	return Buffer.from(view.buffer, view.byteOffset, view.byteLength);
}

// Fills a sorter of each module alike, and compares what they write: all of their output, each count in turn.
function compare(options, fill, counts, modules = teams) {
	const expected = one.createPointSorter(options);
	fill(expected);
	for (const team of modules) {
		const sorter = team.createPointSorter(options);
		for (const name of ["positions", "values", "enabled"]) sorter[name].set(expected[name]);
		for (const count of counts) {
			expected.indices.fill(7);
			sorter.indices.fill(7);
			const length = expected.sort(count, kCamera).length;
			assert.equal(sorter.sort(count, kCamera).length, length);
			if (!bytesOf(sorter.indices).equals(bytesOf(expected.indices)))
				assert.fail(`${count} of ${JSON.stringify(options)} with ${team.threads} threads`);
		}
		sorter.dispose();
	}
	expected.dispose();
}

function fillFloats(floats, seed) {
	const random = randomNumbers(seed);
	for (let i = 0; i < floats.length; ++i) floats[i] = 200 * random() - 100;
}

const fillRandom = ({ positions, values }) => {
	fillFloats(positions, 31);
	fillFloats(values, 32);
};

describe("the bytes of one thread", () => {
	const kCounts = [
		0, 1, 109, 110, 4099, kSharedFrom - 1, kSharedFrom, kSharedFrom + 1, 40003, 65533, 65534, 98304, 100003,
	];

	for (const by of ["position", "value"]) {
		for (const indexType of ["uint32", "uint16"]) {
			test(`by ${by}, ${indexType}, growing counts`, () => {
				const counts = kCounts.filter((count) => indexType === "uint32" || count <= 65534);
				compare({ capacity: counts.at(-1), by, indexType }, fillRandom, counts);
			});
		}
	}

	test("patterns of every width", () => {
		const twoQuads = [...kQuad, ...kQuad.map((entry) => entry + 4)];
		for (const pattern of [[0, 1, 2], kQuad, twoQuads, [0, 1, 2, 0, 2, 3, 0, 3, 4]])
			compare({ capacity: 40007, pattern }, fillRandom, [40007, 33001]);
		compare({ capacity: 16000, pattern: kQuad, indexType: "uint16" }, fillRandom, [16000]);
		compare({ capacity: 40000, verticesPerParticle: 107000 }, fillRandom, [40000]); // almost 32 bits of vertices
	});

	test("a million, and four", () => {
		compare({ capacity: 1000003 }, fillRandom, [1000003]);
		compare({ capacity: 4000001, by: "value" }, fillRandom, [4000001], [teams[0], teams[2]]);
	});

	test("every float, NaNs too", () => {
		compare(
			{ capacity: 90001, by: "value" },
			({ values }) => {
				const bits = new Uint32Array(values.buffer, values.byteOffset, values.length);
				const random = randomNumbers(33);
				for (let i = 0; i < bits.length; ++i) bits[i] = Math.floor(0x100000000 * random()) ^ (i << 3);
			},
			[90001, 70000]
		);
	});

	test("equal keys, few and many", () => {
		for (const keyCount of [1, 2, 5, 100, 20000])
			for (const runLength of [1, 16])
				compare(
					{ capacity: 70001, by: "value" },
					({ values }) => {
						const random = randomNumbers(34);
						for (let i = 0; i < values.length; ++i)
							values[i] = i % runLength === 0 ? Math.floor(keyCount * random()) : values[i - 1];
					},
					[70001]
				);
		// Most keys share their leading bits, so parts are split again.
		compare(
			{ capacity: 200003, by: "value" },
			({ values }) => {
				const random = randomNumbers(35);
				for (let i = 0; i < values.length; ++i)
					values[i] = random() < 0.9 ? 1 + Math.floor(100000 * random()) / 2 ** 22 : 1e9 * random();
			},
			[200003]
		);
	});

	const kDisabled = {
		"the first one": (i) => i === 0,
		"the last one": (i, count) => i === count - 1,
		"one in the middle": (i, count) => i === count >> 1,
		"the second half": (i, count) => i > count / 2 && i % 5 !== 0,
		"the first third": (i, count) => i < count / 3,
		"every third": (i) => i % 3 === 1,
		"few of many": (i) => (i * 7919) % 20011 === 5,
		"all but some": (i) => i % 3 !== 0,
	};
	for (const [what, isDisabled] of Object.entries(kDisabled)) {
		test(`disabled: ${what}`, () => {
			const capacity = 120011;
			for (const by of ["position", "value"])
				compare(
					{ capacity, by, enabled: true, pattern: [0, 1, 2] },
					(sorter) => {
						fillRandom(sorter);
						for (let i = 0; i < capacity; ++i)
							sorter.enabled[i] = isDisabled(i, capacity) ? 0 : 1 + (i % 255);
					},
					[capacity, 100000, 40001]
				);
		});
	}

	test("frame after frame, as the camera moves", () => {
		const count = 50001;
		for (const team of teams) {
			const [expected, sorter] = [one, team].map((module) => module.createPointSorter({ capacity: count }));
			fillRandom(expected);
			sorter.positions.set(expected.positions);
			for (let frame = 0; frame < 100; ++frame) {
				const camera = [frame, 50 - frame, 0.5 * frame];
				if (!bytesOf(sorter.sort(count, camera)).equals(bytesOf(expected.sort(count, camera))))
					assert.fail(`frame ${frame} with ${team.threads} threads`);
			}
			sorter.dispose();
			expected.dispose();
		}
	});
});

test("memory grows for a sorter, and older ones go on with new views", async () => {
	const team = await load({ threads: 2 });
	const first = team.createPointSorter({ capacity: 40000, by: "value" });
	fillRandom(first);
	const stale = first.values;
	const before = first.sort(40000).slice();
	team.createPointSorter({ capacity: 1000000 });
	assert.notEqual(first.values.buffer, stale.buffer, "the memory has not grown, so this shows nothing");
	assert.ok(first.values.buffer instanceof SharedArrayBuffer);
	assert.deepEqual(first.sort(40000), before);
	assert.throws(
		() => team.createPointSorter({ capacity: 300000000, by: "value" }),
		/^Error: There is no memory for a sorter of \d+ particles\.$/
	);
	team.endThreads();
});

test("when threads are ended, sorters sort on one", async () => {
	const team = await load({ threads: 3 });
	const sorter = team.createPointSorter({ capacity: 60000, by: "value" });
	fillRandom(sorter);
	const order = sorter.sort(60000).slice();
	team.endThreads();
	team.endThreads();
	assert.equal(team.threads, 1);
	assert.deepEqual(sorter.sort(60000), order);
	one.endThreads();
	assert.equal(one.threads, 1);
});

describe("workers that stop", () => {
	test("while they have no job are not missed", async () => {
		const workers = [];
		const listener = (worker) => workers.push(worker);
		process.on("worker", listener);
		const team = await load({ threads: 3 });
		process.off("worker", listener);
		const sorter = team.createPointSorter({ capacity: 60000, by: "value" });
		fillRandom(sorter);
		const order = sorter.sort(60000).slice();
		assert.equal(workers.length, 2);
		for (const worker of workers) {
			await worker.terminate();
			assert.deepEqual(sorter.sort(60000), order);
		}
		team.endThreads();
	});

	// A thread that has no stack takes part in the sorts of a team, unknown to it: it takes a job and traps.
	test("inside a job end the others, and the sort is begun again", async () => {
		const module = new WebAssembly.Module(readFileSync(`${kBuild}/package/vexmoor-threads.wasm`));
		const team = await startThreads(module, 2);
		const { exports } = team;
		const count = 60000;
		const sorter = exports.create(count, false, false, false, 1, 1) >>> 0;
		new Uint32Array(exports.memory.buffer, exports.pattern(sorter), 1)[0] = 0;
		const values = new Float32Array(exports.memory.buffer, exports.sort_keys(sorter), count);
		fillFloats(values, 36);
		const expected = modelOrder({ values: values.slice(), count });

		const source = `
			import { parentPort, workerData } from "node:worker_threads";
			const { importsOf } = await import(workerData.url);
			const { exports } = new WebAssembly.Instance(workerData.module, importsOf(workerData.memory));
			exports.__stack_pointer.value = 0;
			parentPort.postMessage("ready");
			exports.work();`;
		const thread = new Worker(new URL(`data:text/javascript,${encodeURIComponent(source)}`), {
			workerData: {
				url: pathToFileURL(`${kBuild}/package/vexmoor-threads.js`).href,
				module,
				memory: exports.memory,
			},
		});
		const failed = new Promise((resolve) => thread.once("error", resolve));
		await new Promise((resolve) => thread.once("message", resolve));
		for (let turn = 0; turn < 1000 && team.threadCount === 2; ++turn) {
			exports.sort(sorter, count, 0, 0, 0);
			const order = new Uint32Array(exports.memory.buffer, exports.indices(sorter), count);
			assert.deepEqual([...order], expected);
		}
		assert.equal((await failed).name, "RuntimeError");
		assert.equal(team.threadCount, 1);
	});
});

describe("one thread sorts", () => {
	function runs(script) {
		const source = `import { load } from ${JSON.stringify(pathToFileURL(`${kBuild}/package/vexmoor.js`).href)};
			${script}`;
		return execFileSync(process.execPath, ["--input-type=module", "--eval", source], {
			encoding: "utf8",
			timeout: 20000,
		});
	}
	const kSort = `
		const vexmoor = await load({ threads: 3 });
		const sorter = vexmoor.createPointSorter({ capacity: 40000, by: "value" });
		sorter.values[5] = -1;
		console.log(vexmoor.threads, sorter.sort(40000)[0]);`;

	test("where there are three, the program ends by itself", () => {
		assert.equal(runs(kSort), "3 5\n");
	});
	test("where memory cannot be shared", () => {
		assert.equal(runs(`delete globalThis.SharedArrayBuffer; ${kSort}`), "1 5\n");
	});
	test("on a page that is not isolated", () => {
		assert.equal(runs(`globalThis.crossOriginIsolated = false; ${kSort}`), "1 5\n");
	});
	test("where the engine has no room for a shared memory", () => {
		assert.equal(
			runs(`WebAssembly.Memory = class { constructor() { throw new RangeError(); } }; ${kSort}`),
			"1 5\n"
		);
	});
	test("where workers cannot be started", () => {
		const noWorkers = `
			import { syncBuiltinESMExports } from "node:module";
			import workers from "node:worker_threads";
			workers.Worker = class { constructor() { throw new Error("no"); } };
			syncBuiltinESMExports();`;
		assert.equal(runs(`${noWorkers} ${kSort}`), "1 5\n");
	});
	test("without SIMD", async () => {
		const vexmoor = await load({ simd: false, threads: 2 });
		assert.deepEqual([vexmoor.simd, vexmoor.threads], [false, 1]);
	});
});

test("the module for threads may be handed over", async () => {
	const bytes = readFileSync(`${kBuild}/package/vexmoor-threads.wasm`);
	for (const threadsModule of [bytes, await WebAssembly.compile(bytes), `${kBuild}/package/vexmoor-threads.wasm`]) {
		const team = await load({ threads: 2, threadsModule });
		assert.equal(team.threads, 2);
		team.endThreads();
	}
	await assert.rejects(load({ threads: 2, threadsModule: `${kBuild}/package/gone.wasm` }), /ENOENT/);
	await assert.rejects(load({ threads: 2, threadsModule: readFileSync(`${kBuild}/package/vexmoor-simd.wasm`) }), {
		message: "The module for threads is not one of this package.",
	});
});

test("wrong numbers of threads throw a sentence", async () => {
	for (const threads of [0, -1, 1.5, 33, "2", null])
		await assert.rejects(load({ threads }), /^Error: threads is a whole number from 1 to 32, not /);
});
