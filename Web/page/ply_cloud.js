// What the properties of a PLY file's vertices mean: points with or without colours, or splats as they come out of
// training.

import { CloudBuilder, CloudError } from "./cloud.js";
import { PlyFile } from "./ply_file.js";

const kHarmonic0 = 0.28209479177387814; // the constant spherical harmonic, 1 / (2 sqrt(pi))

const kSplatNames = ["f_dc_0", "f_dc_1", "f_dc_2", "opacity", "scale_0", "scale_1", "scale_2"];
const kRotationNames = ["rot_0", "rot_1", "rot_2", "rot_3"];
const kColourNames = [
	["red", "green", "blue"], // scanners and modellers do not agree
	["r", "g", "b"],
	["diffuse_red", "diffuse_green", "diffuse_blue"],
];

/**
 * @param {Uint8Array} bytes
 * Throws a CloudError whose sentence starts with the place in the file.
 */
export function readPlyFile(bytes) {
	const file = new PlyFile(bytes);
	const has = (name) => file.findNumber(name) >= 0;
	if (has("packed_position") && !has("x"))
		throw new CloudError(
			"the header: its vertices are packed in chunks ('packed_position'), which is not read; save it as a PLY " +
				"of plain splats."
		);
	return ["f_dc_0", "scale_0", "rot_0"].some(has) ? readSplats(file) : readPoints(file);
}

function columns(file, what, names) {
	return names.map((name) => {
		const column = file.findNumber(name);
		if (column < 0)
			throw new CloudError(
				`the header: ${what} has to have a number '${name}', and the vertices here have none.`
			);
		return column;
	});
}

function readSplats(file) {
	const read = columns(file, "a splat", ["x", "y", "z", ...kSplatNames, ...kRotationNames]);
	const builder = new CloudBuilder(file.vertices.count);
	file.readVertices(read, (values) => {
		for (let i = 0; i < 3; ++i) {
			builder.position[i] = values[i];
			builder.colour[i] = 0.5 + kHarmonic0 * values[3 + i];
			builder.logScales[i] = values[7 + i];
		}
		builder.colour[3] = 1 / (1 + Math.exp(-values[6]));
		for (let i = 0; i < 4; ++i) builder.rotation[i] = values[10 + i];
		return builder.add();
	});
	return builder.finish();
}

function readPoints(file) {
	const position = columns(file, "a point", ["x", "y", "z"]);
	const named = kColourNames.find((names) => names.every((name) => file.findNumber(name) >= 0)) ?? [];
	const alpha = file.findNumber("alpha") >= 0 ? ["alpha"] : [];
	const colour = columns(file, "a point", [...named, ...alpha]);
	const scales = colour.map((column) => 1 / file.fullScale(column));

	const builder = new CloudBuilder(file.vertices.count);
	builder.rotation[0] = 1;
	file.readVertices([...position, ...colour], (values) => {
		builder.position.set(values.subarray(0, 3));
		builder.colour.fill(1);
		for (let i = 0; i < colour.length; ++i) builder.colour[named.length === 0 ? 3 : i] = values[3 + i] * scales[i];
		return builder.add();
	});
	return builder.finish({ areColoured: named.length > 0 });
}
