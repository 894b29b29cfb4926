// What the package sorts, with SIMD and without, against the model: every index.

import assert from "node:assert/strict";
import { describe, test } from "node:test";

import { modelIndices, modelKeys, modelOrder, randomNumbers } from "./model.mjs";
import { load } from "./package.mjs";

const kQuad = [0, 1, 2, 0, 2, 3];
const kCounts = [
	0, 1, 2, 3, 4, 5, 23, 24, 63, 108, 109, 110, 111, 255, 256, 257, 1000, 4099, 65534, 65536, 65537, 200003,
];

// Fills arrays with numbers of a seed's. Coordinates are coarse where equal keys are wanted.
function fill(floats, seed, isCoarse = false) {
	const random = randomNumbers(seed);
	for (let i = 0; i < floats.length; ++i) floats[i] = isCoarse ? Math.floor(4 * random()) : 200 * random() - 100;
}

function equal(actual, expected) {
	// A loop, since deepEqual of large arrays takes seconds.
	assert.equal(actual.length, expected.length);
	for (let i = 0; i < expected.length; ++i) {
		if (actual[i] !== expected[i]) assert.fail(`index ${i} is ${actual[i]}, not ${expected[i]}`);
	}
}

const modules = { SIMD: await load({ simd: true }), "no SIMD": await load({ simd: false }) };

for (const [name, vexmoor] of Object.entries(modules)) {
	describe(name, () => {
		test("is what was asked for", () => {
			assert.equal(vexmoor.simd, name === "SIMD");
			assert.match(vexmoor.version, /^\d+\.\d+\.\d+$/);
		});

		test("positions: the farthest first, at every count", () => {
			const capacity = Math.max(...kCounts);
			const sorter = vexmoor.createPointSorter({ capacity });
			fill(sorter.positions, 1);
			for (const count of kCounts) {
				const camera = [count % 7, -3.25, 1e-3 * count];
				const expected = modelOrder({ positions: sorter.positions, camera, count });
				equal(sorter.sort(count, camera), expected);
			}
			sorter.dispose();
		});

		test("values: the lowest first, at every count", () => {
			const capacity = Math.max(...kCounts);
			const sorter = vexmoor.createPointSorter({ capacity, by: "value" });
			fill(sorter.values, 2);
			for (const count of kCounts) equal(sorter.sort(count), modelOrder({ values: sorter.values, count }));
			sorter.dispose();
		});

		test("equal keys lie as records do above 109, and up to 109 they are together", () => {
			for (const by of ["position", "value"]) {
				const sorter = vexmoor.createPointSorter({ capacity: 5000, by });
				fill(by === "position" ? sorter.positions : sorter.values, 3, true);
				const camera = [1, 2, 3];
				for (const count of [40, 109, 110, 113, 5000]) {
					const call =
						by === "position"
							? { positions: sorter.positions, camera, count }
							: { values: sorter.values, count };
					const order = sorter.sort(count, camera);
					const expected = modelOrder(call);
					const keys = modelKeys(call);
					assert.ok(new Set(keys).size < count);
					assert.deepEqual(
						[...order].sort((a, b) => a - b),
						[...expected].sort((a, b) => a - b)
					);
					equal(
						Array.from(order, (i) => keys[i]),
						expected.map((i) => keys[i])
					);
					if (count > 109) equal(order, expected);
				}
				sorter.dispose();
			}
		});

		test("every float has its place: NaNs, infinities, denormals, zeros", () => {
			const special = [
				0x7fc00000, 0xffc00000, 0x7f800001, 0xffffffff, 0x7f800000, 0xff800000, 0x00000001, 0x80000001, 0,
				0x80000000, 0x3f800000, 0x7f7fffff, 0xff7fffff, 0x007fffff,
			];
			const random = randomNumbers(4);
			for (const by of ["position", "value"]) {
				const sorter = vexmoor.createPointSorter({ capacity: 3000, by });
				const floats = by === "position" ? sorter.positions : sorter.values;
				fill(floats, 5);
				const bits = new Uint32Array(floats.buffer, floats.byteOffset, floats.length);
				for (let i = 0; i < bits.length; i += 1 + Math.floor(5 * random()))
					bits[i] = special[Math.floor(special.length * random())];
				for (const camera of [
					[0, 0, 0],
					[Infinity, 0, 0],
					[0, -Infinity, 1],
				]) {
					const call =
						by === "position"
							? { positions: floats, camera, count: 3000 }
							: { values: floats, count: 3000 };
					equal(sorter.sort(3000, camera), modelOrder(call));
				}
				sorter.dispose();
			}
		});

		test("a camera of NaN leaves records in their order", () => {
			const sorter = vexmoor.createPointSorter({ capacity: 200 });
			fill(sorter.positions, 6);
			equal(
				sorter.sort(200, [NaN, 0, 0]),
				modelOrder({ positions: sorter.positions, camera: [NaN, 0, 0], count: 200 })
			);
			sorter.dispose();
		});

		for (const indexType of ["uint32", "uint16"]) {
			test(`patterns of every width, ${indexType}`, () => {
				const patterns = [
					[0],
					[0, 1, 2],
					[5, 3, 1],
					kQuad,
					[...kQuad, ...kQuad.map((entry) => entry + 4)],
					[0, 1, 2, 0, 2, 3, 0, 3, 4],
				];
				for (const pattern of patterns) {
					for (const count of [0, 1, 2, 7, 8, 9, 500]) {
						const verticesPerParticle = Math.max(...pattern) + 1;
						const sorter = vexmoor.createPointSorter({ capacity: 500, indexType, pattern });
						fill(sorter.positions, 7);
						sorter.indices.fill(1234);
						const camera = [0.5, 0, 0];
						const order = modelOrder({ positions: sorter.positions, camera, count });
						const drawn = sorter.sort(count, camera);
						equal(drawn, modelIndices(order, pattern, verticesPerParticle));
						assert.ok(
							sorter.indices.subarray(drawn.length).every((index) => index === 1234),
							"written beyond what is drawn"
						);
						assert.equal(drawn.BYTES_PER_ELEMENT, indexType === "uint16" ? 2 : 4);
						sorter.dispose();
					}
				}
			});
		}

		test("vertices per particle can be more than the pattern draws", () => {
			const sorter = vexmoor.createPointSorter({ capacity: 300, pattern: kQuad, verticesPerParticle: 9 });
			fill(sorter.positions, 8);
			const order = modelOrder({ positions: sorter.positions, camera: [0, 0, 0], count: 300 });
			equal(sorter.sort(300, [0, 0, 0]), modelIndices(order, kQuad, 9));
			sorter.dispose();
		});

		test("the largest 16-bit index there may be", () => {
			const sorter = vexmoor.createPointSorter({ capacity: 65535, indexType: "uint16" });
			fill(sorter.positions, 9);
			equal(
				sorter.sort(65535, [0, 0, 0]),
				modelOrder({ positions: sorter.positions, camera: [0, 0, 0], count: 65535 })
			);
			assert.ok(sorter.indices.includes(65534));
			sorter.dispose();
		});

		test("disabled particles are left out, and the others are numbered without them", () => {
			const random = randomNumbers(10);
			for (const by of ["position", "value"]) {
				const sorter = vexmoor.createPointSorter({ capacity: 3000, by, enabled: true, pattern: [0, 1, 2] });
				assert.ok(
					sorter.enabled.every((byte) => byte === 1),
					"enabled at first"
				);
				const floats = by === "position" ? sorter.positions : sorter.values;
				fill(floats, 11);
				for (const share of [1, 0.99, 0.5, 0.01, 0]) {
					for (const count of [1, 30, 150, 2999, 3000]) {
						const { enabled } = sorter;
						for (let i = 0; i < 3000; ++i)
							enabled[i] = random() < share ? 1 + Math.floor(255 * random()) : 0;
						const camera = [3, 2, 1];
						const call =
							by === "position"
								? { positions: floats, enabled, camera, count }
								: { values: floats, enabled, count };
						const order = modelOrder(call);
						equal(sorter.sort(count, camera), modelIndices(order, [0, 1, 2], 3));
					}
				}
				sorter.dispose();
			}
		});
	});
}

test("with SIMD and without, equal keys up to 109 have one order as well", () => {
	for (let count = 0; count <= 120; ++count) {
		const [a, b] = Object.values(modules).map((vexmoor) => {
			const sorter = vexmoor.createPointSorter({ capacity: 120, by: "value" });
			fill(sorter.values, 12 + count, true);
			return sorter.sort(count);
		});
		equal(a, b);
	}
});

// From 4,000 particles on, the module with SIMD takes two passes where keys suit them, and the other one never does.
test("with SIMD and without, keys of every span and spread have one order", () => {
	const random = randomNumbers(40);
	const below = (end) => Math.floor(end * random());
	const capacity = 150000;
	for (const verticesPerParticle of [1, 3, 4, 20]) {
		const [a, b] = Object.values(modules).map((vexmoor) =>
			vexmoor.createPointSorter({ capacity, by: "value", verticesPerParticle })
		);
		for (let turn = 0; turn < 40; ++turn) {
			const count = [4000, 65536, 65537, below(20000), below(capacity)][turn % 5] + below(9);
			const bits = new Uint32Array(a.values.buffer, a.values.byteOffset, count);
			const keyBits = 1 + below(32); // how many low bits differ
			const lowest = below(2 ** 32);
			const shareOfEqual = [0, 0, 0.05, 0.5][below(4)];
			for (let i = 0; i < count; ++i) {
				const isEqual = i !== 0 && random() < shareOfEqual;
				bits[i] = isEqual ? bits[i - 1] : lowest + below(2 ** keyBits);
			}
			new Uint32Array(b.values.buffer, b.values.byteOffset, count).set(bits);
			equal(a.sort(count), b.sort(count));
		}
		a.dispose();
		b.dispose();
	}
});
