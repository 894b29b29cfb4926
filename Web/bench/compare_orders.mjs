// What 16 bits do to the order of the page's cloud while a camera turns around it, as a table in Markdown: with no
// outlier, and with one splat farther and farther away. Tools/web.sh --orders runs it; every run prints the same.

import { join } from "node:path";
import { pathToFileURL } from "node:url";
import { Camera } from "../page/camera.js";
import { kToOutlier } from "../page/cloud.js";
import { writeDepths } from "../page/depth_keys.js";
import { ExactOrder } from "../page/exact_order.js";
import { generateCloud } from "../page/generated_cloud.js";
import { OrderFigures } from "../page/order_figures.js";
import { SixteenBitOrder } from "../page/sixteen_bit_order.js";

const kOutliers = [0, 100, 1000, 10000, 100000]; // distances from the origin, in radii of the cloud
const kFrames = 60;
const kTurn = (0.5 * Math.PI) / 180; // a frame's: 30 degrees a second at 60 frames a second

const { load } = await import(pathToFileURL(join(process.env.VEXMOOR_WEB_BUILD, "package/vexmoor.js")));
const vexmoor = await load();
const cloud = generateCloud();

/** Pairs of splats of which one order draws the one first and the other order the other one. */
function pairsThatChange(figures, ranks, before, after, count) {
	// As depths: the first one is the farthest.
	for (let rank = 0; rank < count; ++rank) ranks[before[rank]] = count - rank;
	return figures.measure(ranks, after, count).pairsOutOfOrder;
}

/** How many keys the splats have between them. */
function distinctCount(keys, count) {
	return new Set(keys.subarray(0, count)).size;
}

function measure(radii) {
	const count = cloud.count + (radii > 0 ? 1 : 0);
	const positions = cloud.positions.slice(0, 3 * count);
	if (radii > 0)
		positions.set(
			kToOutlier.map((x) => x * radii),
			3 * cloud.count
		);

	const exact = new ExactOrder(vexmoor, count, "depth");
	exact.setPositions(positions);
	const sixteen = new SixteenBitOrder(count);
	const figures = new OrderFigures(count);
	const depths = new Float32Array(count);
	const ranks = new Float32Array(count);
	const order = new Uint32Array(count);
	const sum = { backtrack: 0, outOfOrder: 0, keys: 0, exactKeys: 0, changes: 0, exactChanges: 0 };
	let exactBefore = null;
	let before = null;
	const camera = new Camera();
	for (let frame = 0; frame <= kFrames; ++frame) {
		const view = camera.view(1, 1);
		writeDepths(positions, count, view, "depth", depths);
		sixteen.sort(depths, count, order);
		const exactOrder = exact.sort(count, view).slice();
		if (figures.measure(depths, exactOrder, count).pairsOutOfOrder !== 0)
			throw new Error("The exact order is not exact.");
		const found = figures.measure(depths, order, count);
		if (frame > 0) {
			sum.backtrack += found.worstBacktrack / found.middleRange / kFrames;
			sum.outOfOrder += found.pairsOutOfOrder / kFrames;
			sum.keys += distinctCount(sixteen.steps, count) / kFrames;
			sum.exactKeys += distinctCount(depths, count) / kFrames;
			sum.changes += pairsThatChange(figures, ranks, before, order, count) / kFrames;
			sum.exactChanges += pairsThatChange(figures, ranks, exactBefore, exactOrder, count) / kFrames;
		}
		before = order.slice();
		exactBefore = exactOrder;
		camera.turn(kTurn, 0);
	}
	exact.dispose();
	return sum;
}

function whole(number) {
	return Math.round(number)
		.toString()
		.replace(/\B(?=(\d{3})+$)/g, ",");
}

function millions(number) {
	return `${number < 1e8 ? (number / 1e6).toPrecision(3) : whole(number / 1e6)} M`;
}

console.log(`Of ${whole(cloud.count)} splats, means of ${kFrames} frames:\n`);
console.log(
	"| One splat away, in radii | 16-bit keys in use | Worst backtrack | Pairs out of order | Pairs that change |"
);
console.log("|---|---|---|---|---|");
for (const radii of kOutliers) {
	const found = measure(radii);
	if (radii === 0)
		console.log(`| none, exact | ${whole(found.exactKeys)} | 0 | 0 | ${millions(found.exactChanges)} |`);
	const backtrack = `${(100 * found.backtrack).toPrecision(2)} %`;
	console.log(
		`| ${radii > 0 ? whole(radii) : "none"} | ${whole(found.keys)} | ${backtrack} | ` +
			`${millions(found.outOfOrder)} | ${millions(found.changes)} |`
	);
}
