// The orders and their figures: the exact order against the library built for this machine, that of 16 bits against
// what it promises, and the figures against counting every pair.

import assert from "node:assert/strict";
import { join } from "node:path";
import { test } from "node:test";
import { pathToFileURL } from "node:url";
import { writeDepths, writeNegatedViewDepths } from "../../page/depth_keys.js";
import { ExactOrder } from "../../page/exact_order.js";
import { generateCloud } from "../../page/generated_cloud.js";
import { OrderFigures } from "../../page/order_figures.js";
import { SixteenBitOrder } from "../../page/sixteen_bit_order.js";
import { nativeOrder } from "./native.mjs";

const { load } = await import(pathToFileURL(join(process.env.VEXMOOR_WEB_BUILD, "package/vexmoor.js")));
const vexmoor = await load();
const cloud = generateCloud();

function random(seed) {
	let state = seed;
	return () => (state = (Math.imul(state, 1664525) + 1013904223) >>> 0) / 4294967296;
}

function cameras() {
	const next = random(7);
	return Array.from({ length: 4 }, () => {
		const forward = [next() - 0.5, next() - 0.5, next() - 0.5];
		const length = Math.hypot(...forward);
		return { eye: forward.map((x) => (-2.5 * x) / length), forward: forward.map((x) => x / length) };
	});
}

test("The exact order is the library's own, by distance and by depth", () => {
	const { count } = cloud;
	const positions = cloud.positions.subarray(0, 3 * count);
	const values = new Float32Array(count);
	for (const by of ["distance", "depth"]) {
		const order = new ExactOrder(vexmoor, count, by);
		order.setPositions(positions);
		for (const camera of cameras()) {
			const indices = order.sort(count, camera);
			writeNegatedViewDepths(positions, count, camera, values);
			const native =
				by === "distance" ? nativeOrder("position", positions, camera.eye) : nativeOrder("value", values);
			assert.deepEqual(indices, native, `by ${by}, from ${camera.eye}`);
		}
		order.dispose();
	}
});

test("By the page's own depths, the exact order has no pair out of order", () => {
	const { count, positions } = cloud;
	const depths = new Float32Array(count);
	const figures = new OrderFigures(count);
	for (const by of ["distance", "depth"]) {
		const order = new ExactOrder(vexmoor, count, by);
		order.setPositions(positions.subarray(0, 3 * count));
		for (const camera of cameras()) {
			const indices = order.sort(count, camera);
			writeDepths(positions, count, camera, by, depths);
			const { pairsOutOfOrder, worstBacktrack } = figures.measure(depths, indices, count);
			assert.deepEqual([pairsOutOfOrder, worstBacktrack], [0, 0]);
		}
		order.dispose();
	}
});

test("The order of 16 bits has every splat once, and is right down to a step of the range", () => {
	const { count, positions } = cloud;
	const depths = new Float32Array(count);
	const indices = new Uint32Array(count);
	const order = new SixteenBitOrder(count);
	for (const camera of cameras()) {
		writeDepths(positions, count, camera, "depth", depths);
		order.sort(depths, count, indices);
		assert.deepEqual(
			Uint32Array.from(indices).sort(),
			Uint32Array.from({ length: count }, (_, i) => i)
		);
		const { worstBacktrack, range, pairsOutOfOrder } = new OrderFigures(count).measure(depths, indices, count);
		assert.ok(worstBacktrack > 0 && worstBacktrack <= (1.001 * range) / 65535, `${worstBacktrack} of ${range}`);
		assert.ok(pairsOutOfOrder > 0);
	}
});

test("Splats of one step stay as they lie in the file", () => {
	const order = new SixteenBitOrder(6);
	const indices = new Uint32Array(6);
	order.sort(Float32Array.of(20.1, 20, 50000, 20.2, 100000, 0), 6, indices);
	assert.deepEqual([...indices], [4, 2, 0, 1, 3, 5]);
	order.sort(Float32Array.of(3, 3, 3, 3, 3, 3), 6, indices);
	assert.deepEqual([...indices], [0, 1, 2, 3, 4, 5]);
});

test("The figures are those of counting every pair", () => {
	const next = random(3);
	for (const count of [0, 1, 2, 3, 17, 64, 257]) {
		const depths = Float32Array.from({ length: count }, () => Math.floor(next() * count)); // some are equal
		const indices = Uint32Array.from({ length: count }, (_, i) => i).sort(() => next() - 0.5);
		let pairsOutOfOrder = 0;
		let worstBacktrack = 0;
		for (let late = 0; late < count; ++late)
			for (let early = 0; early < late; ++early) {
				const backtrack = depths[indices[late]] - depths[indices[early]];
				pairsOutOfOrder += backtrack > 0 ? 1 : 0;
				worstBacktrack = Math.max(worstBacktrack, backtrack);
			}
		const figures = new OrderFigures(300).measure(depths, indices, count);
		assert.equal(figures.pairsOutOfOrder, pairsOutOfOrder, `pairs of ${count}`);
		assert.equal(figures.worstBacktrack, worstBacktrack, `backtrack of ${count}`);
		assert.equal(figures.pairs, (count * (count - 1)) / 2);
		assert.equal(figures.range, count > 0 ? Math.max(...depths) - Math.min(...depths) : 0);
	}
});

test("The middle range leaves out the nearest and the farthest hundredth", () => {
	const depths = Float32Array.from({ length: 1001 }, (_, i) => (i === 500 ? 1e6 : i));
	const indices = Uint32Array.from({ length: 1001 }, (_, i) => i);
	const { range, middleRange } = new OrderFigures(1001).measure(depths, indices, 1001);
	assert.equal(range, 1e6);
	assert.ok(middleRange > 970 && middleRange < 985, `${middleRange}`);
});

test("The bundled cloud is the same every time, and turned and sized as splats are", () => {
	const again = generateCloud();
	assert.deepEqual(again.positions, cloud.positions);
	assert.deepEqual(again.splats, cloud.splats);
	assert.ok(cloud.count > 100000);
});
