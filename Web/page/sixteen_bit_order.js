// The order of common viewers: depths between the least and the greatest are cut into 65,536 equal steps, and a
// counting sort puts the steps in order. Splats of one step stay as they lie in the file.

const kStepCount = 65536;

export class SixteenBitOrder {
	/** @param capacity The most splats of one sort. */
	constructor(capacity) {
		this.steps = new Uint16Array(capacity);
		this.starts = new Uint32Array(kStepCount);
	}

	/** Writes the numbers of the first `count` splats, those of the greatest depth first. */
	sort(depths, count, indices) {
		const { steps, starts } = this;
		let least = Infinity;
		let greatest = -Infinity;
		for (let i = 0; i < count; ++i) {
			const depth = depths[i];
			if (depth < least) least = depth;
			if (depth > greatest) greatest = depth;
		}

		// Step 0 is the farthest.
		const stepsPerDepth = greatest > least ? (kStepCount - 1) / (greatest - least) : 0;
		starts.fill(0);
		for (let i = 0; i < count; ++i) {
			const step = ((greatest - depths[i]) * stepsPerDepth) | 0;
			steps[i] = step;
			++starts[step];
		}
		let start = 0;
		for (let step = 0; step < kStepCount; ++step) {
			const size = starts[step];
			starts[step] = start;
			start += size;
		}
		for (let i = 0; i < count; ++i) indices[starts[steps[i]]++] = i;
	}
}
