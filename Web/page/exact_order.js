// The exact order, by the library: a sorter for the cloud in its WebAssembly module's memory.

import { writeNegatedViewDepths } from "./depth_keys.js";

export class ExactOrder {
	/**
	 * @param vexmoor A loaded module.
	 * @param capacity The most splats of one sort.
	 * @param by "distance": the library makes keys from positions. "depth": of values, the negated depth along the view
	 * axis.
	 */
	constructor(vexmoor, capacity, by) {
		this.by = by;
		this.sorter = vexmoor.createPointSorter({
			capacity,
			by: by === "distance" ? "position" : "value",
			pattern: [0],
			verticesPerParticle: 1,
		});
	}

	/** Takes over the splats' positions. */
	setPositions(positions) {
		this.positions = positions;
		if (this.by === "distance") this.sorter.positions.set(positions);
	}

	/** Takes over one splat's position, which has changed. */
	setPosition(splat, position) {
		if (this.by === "distance") this.sorter.positions.set(position, 3 * splat);
	}

	/** The numbers of the first `count` splats, the farthest first: a view that the next sort writes again. */
	sort(count, camera) {
		if (this.by === "distance") return this.sorter.sort(count, camera.eye);
		writeNegatedViewDepths(this.positions, count, camera, this.sorter.values);
		return this.sorter.sort(count);
	}

	dispose() {
		this.sorter.dispose();
	}
}
