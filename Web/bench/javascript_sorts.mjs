// The sorts that pages write in JavaScript: packed positions and a camera in, numbers of points out, the farthest
// first. All memory is taken once.

/**
 * What viewers of splats do: depths along the view axis, from the camera to the origin, in 65,536 equal steps between
 * the farthest and the nearest, and one counting sort over the steps. The order is approximate.
 */
export class CountingSort16 {
	#depths;
	#steps;
	#counters = new Uint32Array(1 << 16);

	constructor(positions) {
		this.positions = positions;
		this.#depths = new Float32Array(positions.length / 3);
		this.#steps = new Uint16Array(positions.length / 3);
		this.indices = new Uint32Array(positions.length / 3);
	}

	sort(camera) {
		const { positions, indices } = this;
		const depths = this.#depths,
			steps = this.#steps,
			counters = this.#counters;
		const count = indices.length;
		const [x, y, z] = camera;
		let lowest = Infinity,
			highest = -Infinity;
		for (let i = 0, j = 0; i < count; ++i, j += 3) {
			const depth = positions[j] * x + positions[j + 1] * y + positions[j + 2] * z; // of the farthest, the lowest
			depths[i] = depth;
			if (depth > highest) highest = depth;
			if (depth < lowest) lowest = depth;
		}
		lowest = Math.fround(lowest);
		const stepsPerUnit = 65535 / (Math.fround(highest) - lowest);
		counters.fill(0);
		for (let i = 0; i < count; ++i) {
			const step = ((depths[i] - lowest) * stepsPerUnit) | 0;
			steps[i] = step;
			++counters[step];
		}
		let sum = 0;
		for (let step = 0; step < 65536; ++step) {
			const stepCount = counters[step];
			counters[step] = sum;
			sum += stepCount;
		}
		for (let i = 0; i < count; ++i) indices[counters[steps[i]]++] = i;
	}
}

function fillDistances(positions, camera, distances) {
	const [x, y, z] = camera;
	for (let i = 0, j = 0; i < distances.length; ++i, j += 3) {
		const dx = positions[j] - x,
			dy = positions[j + 1] - y,
			dz = positions[j + 2] - z;
		distances[i] = dx * dx + dy * dy + dz * dz;
	}
}

/** Uint32Array.prototype.sort of point numbers, with a function that compares distances. */
export class ComparatorSort {
	#distances;

	constructor(positions) {
		this.positions = positions;
		this.#distances = new Float32Array(positions.length / 3);
		this.indices = new Uint32Array(positions.length / 3);
	}

	sort(camera) {
		const distances = this.#distances;
		fillDistances(this.positions, camera, distances);
		for (let i = 0; i < this.indices.length; ++i) this.indices[i] = i;
		this.indices.sort((a, b) => distances[b] - distances[a]);
	}
}

/**
 * BigUint64Array.prototype.sort of keys packed with point numbers: the inverted bits of the squared distance, which is
 * never negative, over the number. The engine sorts them without a function.
 */
export class PackedSort {
	#packed;
	#words;
	#distances;
	#bits;

	constructor(positions) {
		this.positions = positions;
		this.#distances = new Float32Array(positions.length / 3);
		this.#bits = new Uint32Array(this.#distances.buffer);
		this.#packed = new BigUint64Array(positions.length / 3);
		this.#words = new Uint32Array(this.#packed.buffer); // lower word first, as on all engines' processors
		this.indices = new Uint32Array(positions.length / 3);
	}

	sort(camera) {
		const { indices } = this;
		const words = this.#words,
			bits = this.#bits;
		fillDistances(this.positions, camera, this.#distances);
		for (let i = 0; i < indices.length; ++i) {
			words[2 * i] = i;
			words[2 * i + 1] = ~bits[i];
		}
		this.#packed.sort();
		for (let i = 0; i < indices.length; ++i) indices[i] = words[2 * i];
	}
}
