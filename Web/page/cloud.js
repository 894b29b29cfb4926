// A cloud of splats as the sorter and the renderer take it: plain typed arrays, placed around the origin. A splat is a
// Gaussian in space, with a standard deviation along each of three axes, turned by a quaternion.

/** What is wrong with a file, in one sentence for its owner. */
export class CloudError extends Error {}

/**
 * Where the page puts its outlier: down, and a little aside. A camera that looks down sees it at about the same depth
 * wherever it turns.
 */
export const kToOutlier = [0.1, -0.99, 0.1];

/** 32-bit words of a splat in Cloud.splats: two texels of four words. */
export const kWordsPerSplat = 8;

/**
 * A cloud, and room behind it for one splat more: the outlier that the page can put far away.
 * positions  3 floats a splat, all but one in a hundred within a distance of 1 from the origin.
 * splats     8 words a splat: the position's three floats; red, green, blue and alpha, a byte each; a unit quaternion
 *            w, x, y, z, 16 bits each, where 32767 is 1; natural logarithms of three standard deviations, 16 bits each,
 *            where 0 is -32 and 65535 is 32; 16 bits of nothing.
 */
export class Cloud {
	constructor(count, positions, splats) {
		this.count = count;
		this.positions = positions;
		this.splats = splats;
	}
}

const kLogScaleRange = 32;
const kLogScaleSteps = 65535 / (2 * kLogScaleRange);

/** Collects splats relative to the first: a float has room for details where it has none for a far origin. */
export class CloudBuilder {
	/** @param count Splats to come, at most. */
	constructor(count) {
		if (count === 0) throw new CloudError("there is no splat in it.");
		try {
			this.positions = new Float32Array(3 * (count + 1));
			this.splats = new Uint32Array(kWordsPerSplat * (count + 1));
		} catch {
			throw new CloudError(`it has ${grouped(count)} splats, and the browser has no memory for them.`);
		}
		this.count = 0;
		this.first = [0, 0, 0];

		/**
		 * The splat to add, filled by the caller. Colour and alpha are from 0 to 1. Rotations have any length but 0.
		 */
		this.position = new Float64Array(3);
		this.colour = new Float64Array(4);
		this.logScales = new Float64Array(3);
		this.rotation = new Float64Array(4);
	}

	/** Adds the splat. Returns what is wrong with it, or null. */
	add() {
		const { position, colour, logScales, rotation, first, count } = this;
		if (count === 0) first.splice(0, 3, ...position);
		for (let axis = 0; axis < 3; ++axis) {
			const coordinate = Math.fround(position[axis] - first[axis]);
			if (!Number.isFinite(coordinate)) return "is farther from the first one than a float can say";
			this.positions[3 * count + axis] = coordinate;
		}
		const length = Math.sqrt(rotation[0] ** 2 + rotation[1] ** 2 + rotation[2] ** 2 + rotation[3] ** 2);
		if (length === 0) return "has a rotation of length 0";

		const at = kWordsPerSplat * count;
		for (let channel = 0; channel < 4; ++channel)
			this.splats[at + 3] |= Math.floor(clamp(colour[channel], 0, 1) * 255 + 0.5) << (8 * channel);
		for (let i = 0; i < 4; ++i)
			this.splats[at + 4 + (i >> 1)] |= (Math.round((rotation[i] / length) * 32767) & 0xffff) << (16 * (i & 1));
		for (let i = 0; i < 3; ++i) this.splats[at + 6 + (i >> 1)] |= packedLogScale(logScales[i]) << (16 * (i & 1));
		this.count = count + 1;
		return null;
	}

	/**
	 * The cloud, placed.
	 * @param points Given where the file has points without shapes: they become round, of a size that closes a surface.
	 *               points.areColoured says whether colours were added; otherwise points are coloured by height.
	 */
	finish(points = null) {
		const { positions, splats, count } = this;
		const scale = place(positions, count);
		const pointLogScale = Math.log(clamp(1.4 / Math.sqrt(count), 0.0015, 0.02));
		const words = new Float32Array(splats.buffer);
		for (let splat = 0; splat < count; ++splat) {
			const at = kWordsPerSplat * splat;
			for (let axis = 0; axis < 3; ++axis) words[at + axis] = positions[3 * splat + axis];
			for (let i = 0; i < 3; ++i) {
				const word = at + 6 + (i >> 1);
				const bit = 16 * (i & 1);
				const logScale = ((splats[word] >>> bit) & 0xffff) / kLogScaleSteps - kLogScaleRange + Math.log(scale);
				const packed = packedLogScale(points === null ? logScale : pointLogScale);
				splats[word] = (splats[word] & ~(0xffff << bit)) | (packed << bit);
			}
			if (points !== null && !points.areColoured)
				splats[at + 3] = (splats[at + 3] & 0xff000000) | colourOfHeight(positions[3 * splat + 1]);
		}
		const cloud = new Cloud(count, positions, splats);
		addOutlier(cloud);
		return cloud;
	}
}

/** Puts the splat behind the cloud's last one at a position. */
export function placeOutlier(cloud, position) {
	cloud.positions.set(position, 3 * cloud.count);
	new Float32Array(cloud.splats.buffer, 4 * kWordsPerSplat * cloud.count, 3).set(position);
}

/** A number with commas between its thousands. */
export function grouped(number) {
	return number.toLocaleString("en-US");
}

function clamp(value, low, high) {
	return Math.min(Math.max(value, low), high);
}

function packedLogScale(logScale) {
	return Math.floor(clamp((logScale + kLogScaleRange) * kLogScaleSteps + 0.5, 0, 65535));
}

// A white splat, a hundredth of the cloud's radius in size.
function addOutlier(cloud) {
	const at = kWordsPerSplat * cloud.count;
	const logScale = packedLogScale(Math.log(0.01));
	cloud.splats.set([0, 0, 0, 0xffffffff, 0x00007fff, 0, logScale | (logScale << 16), logScale], at);
}

// From deep blue up to a warm white; red in the lowest byte.
function colourOfHeight(y) {
	const ramp = [
		[18, 33, 107],
		[13, 128, 158],
		[107, 199, 115],
		[255, 237, 191],
	];
	const height = clamp((y + 0.7) / 1.4, 0, 1) * (ramp.length - 1);
	const segment = Math.min(Math.floor(height), ramp.length - 2);
	const along = height - segment;
	return ramp[segment].reduce(
		(colour, low, channel) =>
			colour | (Math.round(low + (ramp[segment + 1][channel] - low) * along) << (8 * channel)),
		0
	);
}

// Moves and scales positions so that all but a few stragglers lie within a distance of 1 from the origin. Returns the
// scale.
function place(positions, count) {
	const stragglers = 0.01; // the share of splats that may lie farther out
	const farthestAllowed = 1e6; // so far at most: squares of distances stay finite, and precise
	const sampleCount = Math.min(count, 100000); // evenly through the file: its quantiles are near enough

	const values = new Float64Array(sampleCount);
	const quantiles = (valueOf) => {
		for (let i = 0; i < sampleCount; ++i) values[i] = valueOf(Math.floor((i * count) / sampleCount));
		values.sort();
		return [stragglers, 1 - stragglers].map((share) => values[Math.round((sampleCount - 1) * share)]);
	};
	const centre = [0, 1, 2].map((axis) => {
		const [low, high] = quantiles((splat) => positions[3 * splat + axis]);
		return (low + high) / 2;
	});
	const distance = (splat) => {
		const x = positions[3 * splat] - centre[0];
		const y = positions[3 * splat + 1] - centre[1];
		const z = positions[3 * splat + 2] - centre[2];
		return Math.sqrt(x * x + y * y + z * z);
	};
	const radius = quantiles(distance)[1];
	let farthest = 0;
	for (let splat = 0; splat < count; ++splat) farthest = Math.max(farthest, distance(splat));
	if (farthest === 0 && count > 1)
		throw new CloudError(`all ${grouped(count)} splats lie at one and the same position.`);

	const unit = Math.max(radius, farthest / farthestAllowed);
	const scale = unit > 0 ? 1 / unit : 1;
	for (let i = 0; i < 3 * count; ++i) positions[i] = (positions[i] - centre[i % 3]) * scale;
	return scale;
}
