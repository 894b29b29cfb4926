// How the module behaves: memory that grows, views that are kept, sorters that are disposed of, wrong uses, workers,
// and the ways to load it.

import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { createServer } from "node:http";
import { describe, test } from "node:test";
import { pathToFileURL } from "node:url";
import { Worker } from "node:worker_threads";

import { modelOrder } from "./model.mjs";
import { kBuild, load } from "./package.mjs";

const kWasm = `${kBuild}/package/vexmoor-simd.wasm`;

describe("memory", () => {
	test("grows for a sorter, and older sorters give up-to-date views", async () => {
		const vexmoor = await load();
		const first = vexmoor.createPointSorter({ capacity: 100, enabled: true });
		const stale = first.positions;
		stale[0] = 5;
		first.enabled[99] = 0;
		const drawn = first.sort(3, [0, 0, 0]);
		const second = vexmoor.createPointSorter({ capacity: 1000000 });
		assert.equal(stale.length, 0, "the memory has not grown, so this shows nothing");
		assert.equal(first.positions.length, 300);
		assert.equal(first.positions[0], 5);
		assert.equal(first.enabled[99], 0);
		assert.equal(first.indices.length, 100);
		assert.notEqual(first.sort(3, [0, 0, 0]), drawn);
		assert.equal(second.positions.length, 3000000);
	});

	test("sorters share no memory", async () => {
		const vexmoor = await load();
		const options = [
			{ capacity: 1001, by: "value" },
			{ capacity: 7, enabled: true, indexType: "uint16" },
			{ capacity: 333 },
			{ capacity: 64, pattern: [0, 1, 2, 0, 2, 3], enabled: true, by: "value" },
		];
		const sorters = options.map((each) => vexmoor.createPointSorter(each));
		const ranges = sorters
			.flatMap(({ positions, values, enabled, indices }) => [positions, values, enabled, indices])
			.filter((view) => view.length > 0)
			.map((view) => [view.byteOffset, view.byteOffset + view.byteLength])
			.sort(([a], [b]) => a - b);
		assert.equal(ranges.length, 10);
		for (let i = 1; i < ranges.length; ++i) assert.ok(ranges[i - 1][1] <= ranges[i][0]);
	});

	test("a sort allocates nothing: views are the same objects from frame to frame", async () => {
		const vexmoor = await load();
		const sorter = vexmoor.createPointSorter({ capacity: 50000 });
		const views = [sorter.positions, sorter.values, sorter.enabled, sorter.indices, sorter.sort(50000, [0, 0, 0])];
		const buffer = views[0].buffer;
		for (let frame = 0; frame < 100; ++frame) {
			const drawn = sorter.sort(50000, [frame, 0, 0]);
			const now = [sorter.positions, sorter.values, sorter.enabled, sorter.indices, drawn];
			now.forEach((view, i) => assert.equal(view, views[i]));
		}
		assert.equal(sorter.indices.buffer, buffer, "the memory has not grown");
		assert.equal(views[4].buffer, buffer, "indices are not copied");
	});

	test("what is disposed of is used again", async () => {
		const vexmoor = await load();
		const make = () => vexmoor.createPointSorter({ capacity: 200000 });
		const first = make();
		const { buffer } = first.positions;
		first.positions.fill(7);
		first.dispose();
		for (let i = 0; i < 50; ++i) {
			const sorter = make();
			assert.equal(sorter.positions.buffer, buffer, "the memory has grown");
			assert.ok(
				sorter.positions.every((coordinate) => coordinate === 0),
				"zeros at first"
			);
			sorter.positions.fill(7);
			sorter.dispose();
		}
	});

	test("a sorter that does not fit throws, and others go on", async () => {
		const vexmoor = await load();
		const sorter = vexmoor.createPointSorter({ capacity: 10 });
		for (const capacity of [110000000, 300000000, 0xffffffff])
			assert.throws(
				() => vexmoor.createPointSorter({ capacity, by: "value" }),
				/^Error: There is no memory for a sorter of \d+ particles\.$/
			);
		assert.equal(sorter.sort(10, [0, 0, 0]).length, 10);
	});

	test("addresses above two gigabytes", async () => {
		const vexmoor = await load();
		// Twice 1.2 GB of indices, which nobody touches.
		const options = { capacity: 1000000, by: "value", pattern: new Uint32Array(300) };
		const large = [vexmoor.createPointSorter(options), vexmoor.createPointSorter(options)];
		const end = vexmoor.createPointSorter({ capacity: 1000 });
		assert.ok(end.positions.byteOffset > 2 ** 31);
		assert.equal(large[1].indices.length, 300000000);
		for (let i = 0; i < 3000; ++i) end.positions[i] = (i * 7919) % 3001;
		assert.deepEqual(
			[...end.sort(1000, [0, 0, 0])],
			modelOrder({ positions: end.positions, camera: [0, 0, 0], count: 1000 })
		);
	});

	test("nothing is used after dispose, which may come twice", async () => {
		const sorter = (await load()).createPointSorter({ capacity: 4 });
		sorter.dispose();
		sorter.dispose();
		for (const use of [
			() => sorter.positions,
			() => sorter.values,
			() => sorter.enabled,
			() => sorter.indices,
			() => sorter.sort(1, [0, 0, 0]),
		])
			assert.throws(use, { message: "This sorter has been disposed of." });
	});
});

describe("views that are not asked for are empty", () => {
	for (const [by, full, empty] of [
		["position", "positions", "values"],
		["value", "values", "positions"],
	]) {
		test(by, async () => {
			const sorter = (await load()).createPointSorter({ capacity: 4, by });
			assert.equal(sorter[full].length, by === "position" ? 12 : 4);
			assert.equal(sorter[empty].length, 0);
			assert.equal(sorter.enabled.length, 0);
		});
	}
});

test("no particles", async () => {
	const vexmoor = await load();
	const sorter = vexmoor.createPointSorter({ capacity: 0, enabled: true });
	assert.equal(sorter.positions.length, 0);
	assert.equal(sorter.sort(0, [0, 0, 0]).length, 0);
});

describe("wrong uses throw a sentence", () => {
	const wrongOptions = [
		[undefined, /^capacity is a whole number of particles up to 4294967295, not undefined\.$/],
		[{}, /^capacity/],
		[{ capacity: -1 }, /not -1\.$/],
		[{ capacity: 1.5 }, /not 1\.5\.$/],
		[{ capacity: "10" }, /not "10"\.$/],
		[{ capacity: 2 ** 32 }, /not 4294967296\.$/],
		[{ capacity: 1, by: "age" }, /^by is "position" or "value", not "age"\.$/],
		[{ capacity: 1, indexType: "uint8" }, /^indexType is "uint32" or "uint16", not "uint8"\.$/],
		[{ capacity: 1, indexType: "toString" }, /^indexType/],
		[{ capacity: 1, enabled: new Uint8Array(1) }, /^enabled is true or false/],
		[
			{ capacity: 1, pattern: [] },
			/^pattern is whole triangles, three indices each, or the one index 0, not \[\]\.$/,
		],
		[{ capacity: 1, pattern: [1] }, /^pattern/],
		[{ capacity: 1, pattern: [0, 1] }, /not \[0, 1\]\.$/],
		[{ capacity: 1, pattern: [0, 1, -2] }, /^pattern/],
		[{ capacity: 1, pattern: [0, 1, NaN] }, /^pattern/],
		[{ capacity: 1, pattern: [0, 1, 0xffffffff] }, /^pattern/],
		[{ capacity: 1, pattern: null }, /not null\.$/],
		[{ capacity: 1, verticesPerParticle: 0 }, /^verticesPerParticle is a whole number above 0, not 0\.$/],
		[{ capacity: 1, verticesPerParticle: 0.5 }, /^verticesPerParticle/],
		[
			{ capacity: 65536, indexType: "uint16" },
			/^The last particle would draw index 65535, but an index of type uint16 has to be below 65535\.$/,
		],
		[{ capacity: 16384, indexType: "uint16", pattern: [0, 1, 2, 0, 2, 3] }, /would draw index 65535/],
		[{ capacity: 2, verticesPerParticle: 0xfffffffe, pattern: [0, 0, 1] }, /would draw index 4294967295/],
	];
	wrongOptions.forEach(([options, message]) => {
		test(`createPointSorter(${JSON.stringify(options)})`, async () => {
			const vexmoor = await load();
			assert.throws(
				() => vexmoor.createPointSorter(options),
				(error) => error instanceof Error && message.test(error.message)
			);
		});
	});

	test("as many 16-bit quads as there may be are no wrong use", async () => {
		const sorter = (await load()).createPointSorter({
			capacity: 16383,
			indexType: "uint16",
			pattern: [0, 1, 2, 0, 2, 3],
		});
		assert.equal(sorter.sort(16383, [0, 0, 0]).length, 6 * 16383);
	});

	test("sort, which then writes nothing", async () => {
		const sorter = (await load()).createPointSorter({ capacity: 3 });
		sorter.indices.fill(77);
		for (const count of [-1, 4, 0.5, NaN, "2", undefined, 2 ** 32])
			assert.throws(() => sorter.sort(count, [0, 0, 0]), {
				message: /^count is a whole number from 0 to the sorter's capacity, 3, not /,
			});
		for (const camera of [undefined, null, [], [1, 2], 5])
			assert.throws(() => sorter.sort(1, camera), {
				message: "A sorter by position takes a camera, three numbers: x, y and z.",
			});
		assert.deepEqual([...sorter.indices], [77, 77, 77]);
	});

	test("load", async () => {
		await assert.rejects(load({ simd: "yes" }), { message: 'simd is true, false or "auto", not "yes".' });
		await assert.rejects(load({ module: "/nowhere/vexmoor.wasm" }), /ENOENT/);
		const empty = Uint8Array.of(0, 0x61, 0x73, 0x6d, 1, 0, 0, 0);
		await assert.rejects(load({ module: empty }), { message: "The module is not one of this package." });
		await assert.rejects(load({ module: Uint8Array.of(1, 2, 3) }), WebAssembly.CompileError);
	});
});

describe("load", () => {
	test("takes the module with SIMD where the engine has it", async () => {
		assert.equal((await load()).simd, true);
		assert.equal((await load({ simd: "auto" })).simd, true);
	});

	test("takes the other one where WebAssembly.validate says no", async (context) => {
		context.mock.method(WebAssembly, "validate", () => false);
		assert.equal((await load()).simd, false);
		assert.equal((await load({ simd: true })).simd, true);
	});

	test("asks with a module that uses SIMD and is whole", async (context) => {
		const validate = context.mock.method(WebAssembly, "validate");
		await load();
		const [module] = validate.mock.calls[0].arguments;
		assert.ok(WebAssembly.validate(module));
		// Its result as i32 in place of v128, which is wrong where v128 is known, and the other way round.
		assert.ok(!WebAssembly.validate(module.map((byte) => (byte === 0x7b ? 0x7f : byte))));
	});

	const bytes = readFileSync(kWasm);
	const sources = {
		bytes: bytes,
		"an ArrayBuffer": bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.length),
		"a compiled module": new WebAssembly.Module(bytes),
		"a path": kWasm,
		"a file's URL": pathToFileURL(kWasm),
		"a file's URL as text": pathToFileURL(kWasm).href,
		"a data URL": `data:application/wasm;base64,${bytes.toString("base64")}`,
	};
	for (const [name, module] of Object.entries(sources)) {
		test(`from ${name}`, async () => {
			const sorter = (await load({ module })).createPointSorter({ capacity: 2 });
			sorter.positions.set([1, 0, 0, 2, 0, 0]);
			assert.deepEqual([...sorter.sort(2, [0, 0, 0])], [1, 0]);
		});
	}

	test("from a server, whatever type it says, and not where it refuses", async () => {
		const server = createServer((request, response) => {
			response.writeHead(request.url === "/there" ? 200 : 404, { "content-type": "text/plain" });
			response.end(bytes);
		});
		await new Promise((listening) => server.listen(0, "127.0.0.1", listening));
		const address = `http://127.0.0.1:${server.address().port}`;
		try {
			assert.equal((await load({ module: `${address}/there` })).simd, true);
			assert.equal((await load({ module: new URL(`${address}/there`) })).simd, true);
			await assert.rejects(load({ module: `${address}/gone` }), {
				message: `${address}/gone cannot be fetched: 404 Not Found.`,
			});
		} finally {
			server.close();
			server.closeAllConnections();
		}
	});
});

test("in a worker, which is given the compiled module and gives the order back", async () => {
	const source = `
		import { parentPort, workerData } from "node:worker_threads";
		const { load } = await import(workerData.url);
		const vexmoor = await load({ module: workerData.module });
		const sorter = vexmoor.createPointSorter({ capacity: 500, by: "value" });
		sorter.values.set(workerData.values);
		const order = sorter.sort(500).slice();
		parentPort.postMessage(order, [order.buffer]);`;
	const values = Float32Array.from({ length: 500 }, (_, i) => (i * 7919) % 500);
	const worker = new Worker(new URL(`data:text/javascript,${encodeURIComponent(source)}`), {
		workerData: {
			url: pathToFileURL(`${kBuild}/package/vexmoor.js`).href,
			module: new WebAssembly.Module(readFileSync(kWasm)),
			values,
		},
	});
	const order = await new Promise((resolve, reject) => worker.once("message", resolve).once("error", reject));
	assert.deepEqual([...order], modelOrder({ values, count: 500 }));
	await worker.terminate();
});
