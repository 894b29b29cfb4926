// A cloud of the shape that captured scenes have, the same on every machine: something dense in the middle, the ground
// and walls around it, and a thin background that reaches far out. Points that follow each other in a capture are often
// neighbours, since one has been split off the other; here they come in clusters of up to 32.

// Marsaglia's xorshift with a period of 2^32 - 1; of its 32 bits the upper 24 make a float.
function randomNumbers(seed) {
	let state = seed;
	return () => {
		state ^= state << 13;
		state ^= state >>> 17;
		state ^= state << 5;
		return (state >>> 8) / 0x1000000;
	};
}

/** Fills packed positions: x, y and z of each point. */
export function fillCloud(positions, seed = 20261122) {
	const random = randomNumbers(seed);
	const normal = () => Math.sqrt(-2 * Math.log(1 - random())) * Math.cos(2 * Math.PI * random());
	const direction = () => {
		const y = 2 * random() - 1,
			angle = 2 * Math.PI * random(),
			radius = Math.sqrt(1 - y * y);
		return [radius * Math.cos(angle), y, radius * Math.sin(angle)];
	};
	const centre = () => {
		const kind = random();
		const [x, y, z] = direction();
		if (kind < 0.55)
			// a rough ball of radius 1
			return scaled(x, y, z, 1 + 0.1 * Math.sin(7 * x) * Math.sin(5 * y + 3 * z));
		if (kind < 0.75)
			// the ground, out to 6
			return [6 * (2 * random() - 1), -1 + 0.02 * normal(), 6 * (2 * random() - 1)];
		if (kind < 0.9)
			// walls
			return scaled(x, Math.abs(y), z, 6 + 0.2 * normal());
		return scaled(x, Math.abs(y), z, 6 * Math.exp(Math.abs(1.2 * normal()))); // the background, log-normal
	};
	for (let i = 0; i < positions.length;) {
		const [x, y, z] = centre();
		const end = Math.min(positions.length, i + 3 * (1 + Math.floor(32 * random())));
		const spread = 0.02 * Math.hypot(x, y, z);
		while (i < end) {
			positions[i++] = x + spread * normal();
			positions[i++] = y + spread * normal();
			positions[i++] = z + spread * normal();
		}
	}
}

/** A camera that circles the middle, a little above the ground. Frames are a few degrees apart. */
export function camera(frame) {
	const angle = 0.05 * frame;
	return Float32Array.of(2.5 * Math.cos(angle), 0.3, 2.5 * Math.sin(angle));
}

function scaled(x, y, z, factor) {
	return [factor * x, factor * y, factor * z];
}
