// Depths of splats, the number that both orders sort by: single precision, and the same bits for all that ask.
//
//   "depth"     along the view axis, as common viewers have it
//   "distance"  from the eye

/**
 * Writes the depth of the first `count` splats.
 * camera.eye and camera.forward have three numbers each; forward has length 1.
 */
export function writeDepths(positions, count, camera, by, depths) {
	if (by === "depth") writeViewDepths(positions, count, camera.eye, camera.forward, depths);
	else writeDistances(positions, count, camera.eye, depths);
}

/** Writes the depths along the view axis, each with its sign turned: the lowest value is the deepest. */
export function writeNegatedViewDepths(positions, count, camera, values) {
	const [x, y, z] = camera.forward;
	writeViewDepths(positions, count, camera.eye, [-x, -y, -z], values);
}

function writeViewDepths(positions, count, eye, forward, depths) {
	const [x, y, z] = forward;
	const offset = -(x * eye[0] + y * eye[1] + z * eye[2]);
	for (let i = 0, at = 0; i < count; ++i, at += 3)
		depths[i] = x * positions[at] + y * positions[at + 1] + z * positions[at + 2] + offset;
}

// The library compares squared distances in single precision, with each product and sum rounded. A root keeps their
// order; two neighbouring squares may have one root in single precision, and then count as equal.
function writeDistances(positions, count, eye, depths) {
	const round = Math.fround;
	const [eyeX, eyeY, eyeZ] = Float32Array.from(eye);
	for (let i = 0, at = 0; i < count; ++i, at += 3) {
		const x = round(positions[at] - eyeX);
		const y = round(positions[at + 1] - eyeY);
		const z = round(positions[at + 2] - eyeZ);
		depths[i] = Math.sqrt(round(round(round(x * x) + round(y * y)) + round(z * z)));
	}
}
