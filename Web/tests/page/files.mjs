// Makes cloud files for tests, in every format that the page reads.

/**
 * A splat with defaults: round, white, in the origin. Scales are standard deviations, colours and alpha from 0 to 255.
 */
export function splat(fields = {}) {
	return {
		position: [0, 0, 0],
		scales: [0.02, 0.02, 0.02],
		colour: [255, 255, 255, 255],
		rotation: [1, 0, 0, 0],
		...fields,
	};
}

/** A .splat file. */
export function splatFile(splats) {
	const file = Buffer.alloc(32 * splats.length);
	splats.forEach(({ position, scales, colour, rotation }, i) => {
		[...position, ...scales].forEach((number, j) => file.writeFloatLE(number, 32 * i + 4 * j));
		colour.forEach((number, j) => file.writeUInt8(number, 32 * i + 24 + j));
		rotation.forEach((number, j) =>
			file.writeUInt8(Math.min(Math.round(number * 128 + 128), 255), 32 * i + 28 + j)
		);
	});
	return file;
}

const kSizes = { char: 1, uchar: 1, short: 2, ushort: 2, int: 4, uint: 4, float: 4, double: 8 };

function binary(type, number, isLittle) {
	const data = new DataView(new ArrayBuffer(kSizes[type]));
	const setters = {
		char: "setInt8",
		uchar: "setUint8",
		short: "setInt16",
		ushort: "setUint16",
		int: "setInt32",
		uint: "setUint32",
		float: "setFloat32",
		double: "setFloat64",
	};
	data[setters[type]](0, number, isLittle);
	return Buffer.from(data.buffer);
}

/**
 * A .ply file.
 * @param format "ascii", "binary_little_endian" or "binary_big_endian"
 * @param elements [{ name, properties: ["float x", "list uchar int indices"], rows: [[1, [0, 1, 2]]] }]
 * @param lineEnd Of the header, and of text.
 */
export function plyFile(format, elements, lineEnd = "\n") {
	const header = ["ply", `format ${format} 1.0`, "comment a test's"];
	for (const { name, properties, rows } of elements)
		header.push(`element ${name} ${rows.length}`, ...properties.map((property) => `property ${property}`));
	header.push("end_header");
	const parts = [Buffer.from(header.join(lineEnd) + lineEnd)];
	const isLittle = format === "binary_little_endian";
	for (const { properties, rows } of elements)
		for (const row of rows)
			if (format === "ascii") {
				parts.push(
					Buffer.from(
						row
							.map((value) => [value].flat())
							.map((value, i) =>
								properties[i].startsWith("list") ? [value.length, ...value].join(" ") : value.join(" ")
							)
							.join(" ") + lineEnd
					)
				);
			} else {
				row.forEach((value, i) => {
					const types = properties[i].split(" ");
					if (types[0] !== "list") parts.push(binary(types[0], value, isLittle));
					else
						parts.push(
							binary(types[1], value.length, isLittle),
							...value.map((number) => binary(types[2], number, isLittle))
						);
				});
			}
	return Buffer.concat(parts);
}

/** The vertices of splats as they come out of training, with normals and a harmonic that are not read. */
export function trainedVertices(splats) {
	const names = ["x", "y", "z", "nx", "ny", "nz", "f_dc_0", "f_dc_1", "f_dc_2", "f_rest_0", "opacity"];
	names.push("scale_0", "scale_1", "scale_2", "rot_0", "rot_1", "rot_2", "rot_3");
	const rows = splats.map(({ position, scales, colour, rotation }) => {
		const harmonics = colour.slice(0, 3).map((channel) => (channel / 255 - 0.5) / 0.28209479177387814);
		const alpha = Math.min(Math.max(colour[3] / 255, 0.001), 0.999);
		return [
			...position,
			0,
			0,
			0,
			...harmonics,
			0.25,
			Math.log(alpha / (1 - alpha)),
			...scales.map(Math.log),
			...rotation.map((number) => 3 * number), // of any length
		];
	});
	return { name: "vertex", properties: names.map((name) => `float ${name}`), rows };
}
