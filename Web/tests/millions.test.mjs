// Sorts of so many particles that the package splits them by the leading bits of keys, against the model's keys: every
// particle once, keys ascending, equal keys in the order in which their records are stored.

import assert from "node:assert/strict";
import { describe, test } from "node:test";

import { modelKeys, randomNumbers } from "./model.mjs";
import { load } from "./package.mjs";

const kSplitFrom = 200000; // CParticleSplit::kMinCount in pv_particle_split.h

// Where a particle's record is stored among the others: whole groups of four in the order 2, 3, 0, 1. Groups are those
// of drawn particles.
function placeOf(number, count) {
	return number < count - (count % 4) ? number ^ 2 : number;
}

function checkOrder(order, keys) {
	const count = keys.length;
	assert.equal(order.length, count);
	const seen = new Uint8Array(count);
	for (let i = 0; i < count; ++i) {
		const number = order[i];
		if (number >= count || seen[number]++ !== 0) assert.fail(`${number} at ${i} is no particle, or drawn twice`);
		if (i === 0) continue;
		const before = order[i - 1];
		const isAbove =
			keys[before] < keys[number] ||
			(keys[before] === keys[number] && placeOf(before, count) < placeOf(number, count));
		if (!isAbove) assert.fail(`${number} at ${i} is drawn behind ${before}`);
	}
}

// Values of both signs and of every exponent, with NaNs among them. Some are equal to one a few particles before.
function fillWithAllFloats(values) {
	const bits = new Uint32Array(values.buffer, values.byteOffset, values.length);
	const random = randomNumbers(21);
	for (let i = 0; i < bits.length; ++i)
		bits[i] = i % 16 < 3 && i >= 16 ? bits[i - 16] : Math.floor(0x100000000 * random()) ^ (i << 3);
}

function fillWithPositions(positions) {
	const random = randomNumbers(22);
	// Coarse, so that many distances are equal.
	for (let i = 0; i < positions.length; ++i) positions[i] = Math.floor(600 * random()) / 8 - 40;
}

for (const simd of [true, false]) {
	describe(simd ? "SIMD" : "no SIMD", async () => {
		const vexmoor = await load({ simd });

		test("values of every kind, split and not", () => {
			const capacity = kSplitFrom + 3;
			const sorter = vexmoor.createPointSorter({ capacity, by: "value" });
			const { values } = sorter;
			fillWithAllFloats(values);
			const keys = modelKeys({ values, count: capacity });
			for (const count of [capacity, capacity - 1, kSplitFrom, kSplitFrom - 1])
				checkOrder(sorter.sort(count), keys.slice(0, count));
			sorter.dispose();
		});

		test("values of which half or more share their leading bits", () => {
			const count = kSplitFrom + 1;
			const sorter = vexmoor.createPointSorter({ capacity: count, by: "value" });
			const { values } = sorter;
			for (const share of [0.45, 0.55, 1]) {
				const random = randomNumbers(23);
				for (let i = 0; i < count; ++i)
					values[i] = random() < share ? 1 + Math.floor(8192 * random()) / 2 ** 20 : 1e6 * random();
				checkOrder(sorter.sort(count), modelKeys({ values, count }));
			}
			sorter.dispose();
		});

		// Parts are sorted in different ways: by how far their keys span, and by whether neighbours share keys.
		const kKinds = {
			"of one power of two": (random) => 1 + random(),
			"of few powers of two, and some of many": (random) =>
				random() < 0.8 ? 1 + 3 * random() : 2 ** (200 * random() - 100),
			"of both signs": (random) => (random() - 0.5) ** 3,
			"of which a thousand are different": (random) => Math.floor(1000 * random()) * 1.37,
			"in runs": (random, i, values) => (i % 16 === 0 || i === 0 ? random() : values[i - 1]),
			"in ascending order": (random, i) => i,
			"in descending order": (random, i) => -i,
			"infinite, some of them": (random) => [Infinity, -Infinity, random(), random()][Math.floor(4 * random())],
		};
		for (const [kind, valueOf] of Object.entries(kKinds)) {
			test(`values ${kind}`, () => {
				const capacity = 530007; // more bits than 2^19, so words have room for fewer bits of keys
				const sorter = vexmoor.createPointSorter({ capacity, by: "value" });
				const { values } = sorter;
				const random = randomNumbers(24);
				for (let i = 0; i < capacity; ++i) values[i] = valueOf(random, i, values);
				const keys = modelKeys({ values, count: capacity });
				for (const count of [capacity, kSplitFrom + 7777]) checkOrder(sorter.sort(count), keys.slice(0, count));
				sorter.dispose();
			});
		}

		test("patterns, whose indices are multiples of any number of vertices", () => {
			const count = kSplitFrom + 2;
			for (const verticesPerParticle of [3, 4, 9, 20000]) {
				const pattern = [0, 2, 1];
				const sorter = vexmoor.createPointSorter({
					capacity: count,
					by: "value",
					pattern,
					verticesPerParticle,
				});
				fillWithAllFloats(sorter.values);
				const drawn = sorter.sort(count);
				const order = Uint32Array.from({ length: count }, (_, i) => drawn[3 * i] / verticesPerParticle);
				for (let i = 0; i < drawn.length; ++i) {
					if (drawn[i] !== order[Math.floor(i / 3)] * verticesPerParticle + pattern[i % 3])
						assert.fail(`index ${i} is ${drawn[i]}`);
				}
				checkOrder(order, modelKeys({ values: sorter.values, count }));
				sorter.dispose();
			}
		});

		// The model takes seconds to find so many distances. How records are split is the same without SIMD.
		test("positions, as quads, all enabled and not", { skip: !simd }, () => {
			const count = kSplitFrom + 2;
			const pattern = [0, 1, 2, 0, 2, 3];
			const sorter = vexmoor.createPointSorter({ capacity: count, pattern, enabled: true });
			const { positions, enabled } = sorter;
			fillWithPositions(positions);
			const camera = [1, 2.5, -3];
			const order = new Uint32Array(count);
			for (const disabled of [[], [0, 5, 70001]]) {
				for (const number of disabled) enabled[number] = 0;
				const drawn = sorter.sort(count, camera);
				const drawnCount = count - disabled.length;
				assert.equal(drawn.length, 6 * drawnCount);
				for (let i = 0; i < drawnCount; ++i) {
					order[i] = drawn[6 * i] / 4;
					for (let k = 1; k < 6; ++k) {
						if (drawn[6 * i + k] !== drawn[6 * i] + pattern[k]) assert.fail(`quad ${i} is torn`);
					}
				}
				checkOrder(order.subarray(0, drawnCount), modelKeys({ positions, enabled, camera, count }));
			}
			sorter.dispose();
		});
	});
}
