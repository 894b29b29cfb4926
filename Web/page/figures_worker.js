// The worker that measures orders. It has a thread of its own, so that no frame waits for it.

import { writeDepths } from "./depth_keys.js";
import { OrderFigures } from "./order_figures.js";
import { serveCalls } from "./worker_calls.js";

let positions = new Float32Array(0);
let depths = new Float32Array(0);
let figures = new OrderFigures(0);

serveCalls({
	/** The positions of all splats, the outlier's last. */
	setCloud(newPositions) {
		positions = newPositions;
		depths = new Float32Array(positions.length / 3);
		figures = new OrderFigures(positions.length / 3);
	},

	/**
	 * Measures each of the orders of the first `count` splats, sorted with the outlier there; null where an order is
	 * null.
	 */
	measure({ count, outlier, camera, by, orders }) {
		if (outlier !== null) positions.set(outlier, positions.length - 3);
		writeDepths(positions, count, camera, by, depths);
		return orders.map((order) => (order === null ? null : figures.measure(depths, order, count)));
	},
});
