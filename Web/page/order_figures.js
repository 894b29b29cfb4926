// What tells a drawing order from the exact one, in figures.

/** Room for measuring orders of up to `capacity` splats, used again from one to the next. */
export class OrderFigures {
	constructor(capacity) {
		this.drawn = new Float32Array(capacity);
		this.merged = new Float32Array(capacity);
	}

	/**
	 * Measures an order of `count` splats by their depths:
	 * pairsOutOfOrder  of all pairs, those whose nearer splat is drawn first. Equal depths are in order either way.
	 * pairs            all pairs.
	 * worstBacktrack   the most that a splat lies behind another one that is drawn before it.
	 * range            the greatest depth less the least.
	 * middleRange      the same of the splats but for the nearest and the farthest hundredth.
	 */
	measure(depths, order, count) {
		for (let i = 0; i < count; ++i) this.drawn[i] = depths[order[i]];

		let worstBacktrack = 0;
		let nearest = Infinity;
		for (let i = 0; i < count; ++i) {
			worstBacktrack = Math.max(worstBacktrack, this.drawn[i] - nearest);
			nearest = Math.min(nearest, this.drawn[i]);
		}

		const pairsOutOfOrder = this.#sortAndCount(count);
		const sorted = this.drawn; // the greatest first
		const tail = Math.floor(0.01 * (count - 1));
		return {
			pairsOutOfOrder,
			pairs: (count * (count - 1)) / 2,
			worstBacktrack: count > 1 ? worstBacktrack : 0,
			range: count > 0 ? sorted[0] - sorted[count - 1] : 0,
			middleRange: count > 0 ? sorted[tail] - sorted[count - 1 - tail] : 0,
		};
	}

	// A merge sort, the greatest first, n log n steps: where a depth of the right half goes before what is left of the
	// left half, each of these was drawn too early. Leaves the sorted depths in this.drawn.
	#sortAndCount(count) {
		let from = this.drawn;
		let to = this.merged;
		let inversions = 0;
		for (let width = 1; width < count; width *= 2) {
			for (let start = 0; start < count; start += 2 * width) {
				const middle = Math.min(start + width, count);
				const end = Math.min(start + 2 * width, count);
				let left = start;
				let right = middle;
				for (let at = start; at < end; ++at) {
					if (right === end || (left < middle && from[left] >= from[right])) {
						to[at] = from[left++];
					} else {
						inversions += middle - left;
						to[at] = from[right++];
					}
				}
			}
			[from, to] = [to, from];
		}
		this.drawn = from;
		this.merged = to;
		return inversions;
	}
}
