// What a sort writes, said once more in plain JavaScript, slowly: floats as their bits, keys and places as BigInt.

const kInfinityBits = 0x7f800000,
	kQuietBit = 0x00400000,
	kNewNaN = 0xffc00000;

/** The bits of each float of a Float32Array. Reading a NaN as a number may change it. */
function bitsOf(floats) {
	return new Uint32Array(floats.buffer, floats.byteOffset, floats.length);
}

function isNaNBits(bits) {
	return (bits & 0x7fffffff) > kInfinityBits;
}

// Of two points: each difference, product and sum rounded by itself, and of NaNs the one that x86 hands on.
function squaredDistanceBits(point, camera) {
	const a = bitsOf(point),
		b = bitsOf(camera),
		f = Math.fround;
	for (let axis = 0; axis < 3; ++axis) {
		if (isNaNBits(a[axis])) return (a[axis] | kQuietBit) >>> 0;
		if (isNaNBits(b[axis])) return (b[axis] | kQuietBit) >>> 0;
		if (a[axis] === b[axis] && (a[axis] & 0x7fffffff) === kInfinityBits) return kNewNaN;
	}
	const [x, y, z] = [0, 1, 2].map((axis) => f(point[axis] - camera[axis]));
	return bitsOf(Float32Array.of(f(f(f(x * x) + f(y * y)) + f(z * z))))[0];
}

// Ascending keys draw the lowest value first.
function keyOfValue(bits) {
	return (bits & 0x80000000) !== 0 ? ~bits >>> 0 : (bits | 0x80000000) >>> 0;
}

// 0 - a squared distance: 0 stays +0, and a NaN stays as it is.
function negated(bits) {
	return bits === 0 || isNaNBits(bits) ? bits : (bits | 0x80000000) >>> 0;
}

/** The key of each drawn particle, in the order of their numbers. */
export function modelKeys({ positions, values, enabled, camera, count }) {
	const all = Array.from({ length: count }, (_, i) => i);
	const drawn = enabled === undefined ? all : all.filter((i) => enabled[i] !== 0);
	if (values !== undefined) return drawn.map((i) => keyOfValue(bitsOf(values)[i]));
	const floats = Float32Array.from(camera);
	const distances = drawn.map((i) => squaredDistanceBits(positions.slice(3 * i, 3 * i + 3), floats));
	// A page with disabled particles is keyed as values are.
	return drawn.length < count
		? distances.map((bits) => keyOfValue(negated(bits)))
		: distances.map((bits) => ~bits >>> 0);
}

/**
 * The drawn particles' numbers in drawing order. Equal keys lie as their records do, of which whole groups of four are
 * stored in the order 2, 3, 0, 1: for more than 109 particles.
 */
export function modelOrder(call) {
	const keys = modelKeys(call);
	const groupsEnd = keys.length - (keys.length % 4);
	const placeOf = (i) => (i < groupsEnd ? (i & ~3) + ((i + 2) & 3) : i);
	const numberAt = placeOf; // swapping the halves of a group twice leaves it as it was
	const packed = BigUint64Array.from(keys, (key, i) => (BigInt(key) << 32n) | BigInt(placeOf(i))).sort();
	return Array.from(packed, (entry) => numberAt(Number(entry & 0xffffffffn)));
}

/** The indices of particles in drawing order. */
export function modelIndices(order, pattern, verticesPerParticle) {
	return order.flatMap((number) => Array.from(pattern, (entry) => number * verticesPerParticle + entry));
}

/** Numbers from 0 on, below 1, the same at every run. */
export function randomNumbers(seed) {
	let state = seed;
	return () => {
		state ^= state << 13;
		state ^= state >>> 17;
		state ^= state << 5;
		return (state >>> 8) / 0x1000000;
	};
}
