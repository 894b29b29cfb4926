// The worker that sorts: both orders of one cloud, for one camera after the other.

import { load } from "./vexmoor/vexmoor.js";
import { writeDepths } from "./depth_keys.js";
import { ExactOrder } from "./exact_order.js";
import { SixteenBitOrder } from "./sixteen_bit_order.js";
import { moved, serveCalls } from "./worker_calls.js";

const kMostThreads = 4;
const kWarmUpSorts = 5;
const kWarmUpCount = 100000;

let vexmoor = null;
let positions = new Float32Array(0);
let depths = new Float32Array(0);
let exactOrder = null;
let sixteenBitOrder = null;

serveCalls({ setCloud, sort });

/** The positions of all splats, the outlier's last. Returns what the module is. */
async function setCloud(newPositions) {
	vexmoor ??= await load({ threads: Math.min(navigator.hardwareConcurrency, kMostThreads) });
	positions = newPositions;
	depths = new Float32Array(positions.length / 3);
	sixteenBitOrder = new SixteenBitOrder(positions.length / 3);
	exactOrder?.dispose();
	exactOrder = null;
	warmUp();
	return { version: vexmoor.version, simd: vexmoor.simd, threads: vexmoor.threads };
}

// The first calls run code that the browser has not compiled for speed yet. They should not be the first that are
// timed.
function warmUp() {
	const count = Math.min(positions.length / 3, kWarmUpCount);
	const indices = new Uint32Array(count);
	for (const by of ["distance", "depth"])
		for (let i = 0; i < kWarmUpSorts; ++i)
			sort({
				count,
				outlier: null,
				camera: { eye: [0, 0, i], forward: [0, 0, -1] },
				by,
				exact: indices,
				sixteen: indices,
			});
}

/**
 * Sorts the first `count` splats by "depth" or "distance", in the exact order, in that of 16 bits, or in both. The last
 * one is put where `outlier` says, unless it is null.
 * The indices go into buffers that come with the call and move back with the result, so none are allocated from frame
 * to frame; an order that is not asked for is null. Times are milliseconds from positions to indices.
 */
function sort({ count, outlier, camera, by, exact, sixteen }) {
	if (outlier !== null) positions.set(outlier, positions.length - 3);
	const result = { exact: null, exactTime: 0, sixteen: null, sixteenTime: 0 };
	if (exact !== null) {
		const order = exactOrderBy(by);
		order.setPosition(positions.length / 3 - 1, positions.subarray(-3));
		const start = performance.now();
		const indices = order.sort(count, camera);
		result.exactTime = performance.now() - start;
		exact.set(indices);
		result.exact = exact;
	}
	if (sixteen !== null) {
		const start = performance.now();
		writeDepths(positions, count, camera, by, depths);
		sixteenBitOrder.sort(depths, count, sixteen);
		result.sixteenTime = performance.now() - start;
		result.sixteen = sixteen;
	}
	return moved(
		result,
		[exact, sixteen].filter((indices) => indices !== null).map((indices) => indices.buffer)
	);
}

function exactOrderBy(by) {
	if (exactOrder?.by !== by) {
		exactOrder?.dispose();
		exactOrder = new ExactOrder(vexmoor, positions.length / 3, by);
		exactOrder.setPositions(positions);
	}
	return exactOrder;
}
