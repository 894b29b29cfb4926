// Reads .splat files: 32 bytes a splat, little-endian, and nothing else. With neither header nor magic number, what
// tells a foreign file is its size, its letters, and numbers that no splat has.

import { CloudBuilder, CloudError, grouped } from "./cloud.js";

//  byte  0  x, y, z                  floats
//       12  standard deviations      three floats
//       24  red, green, blue, alpha  bytes
//       28  rotation w, x, y, z      bytes, 128 is 0
const kSplatSize = 32;
const kFloatNames = ["x", "y", "z", "scale_0", "scale_1", "scale_2"];

/**
 * @param {Uint8Array} file
 * Throws a CloudError whose sentence starts with the place in the file.
 */
export function readSplatFile(file) {
	refuseText(file);
	const count = Math.floor(file.length / kSplatSize);
	if (file.length % kSplatSize !== 0)
		throw new CloudError(
			`byte ${grouped(count * kSplatSize)}: a splat takes 32 bytes, and after ${grouped(count)} of them there ` +
				`are ${file.length % kSplatSize} left.`
		);

	const data = new DataView(file.buffer, file.byteOffset, file.byteLength);
	const builder = new CloudBuilder(count);
	for (let splat = 0; splat < count; ++splat) {
		const at = splat * kSplatSize;
		const fail = (what) => {
			throw new CloudError(`byte ${grouped(at)}: splat ${grouped(splat)} ${what}.`);
		};
		for (let i = 0; i < 6; ++i) {
			const number = data.getFloat32(at + 4 * i, true);
			if (!Number.isFinite(number)) fail(`has no finite '${kFloatNames[i]}'`);
			if (i >= 3 && number < 0) fail(`has a negative '${kFloatNames[i]}'`);
			if (i < 3) builder.position[i] = number;
			else builder.logScales[i - 3] = Math.log(number); // of 0, the least that is packed
		}
		for (let i = 0; i < 4; ++i) {
			builder.colour[i] = file[at + 24 + i] / 255;
			builder.rotation[i] = file[at + 28 + i] - 128;
		}
		const complaint = builder.add();
		if (complaint !== null) fail(complaint);
	}
	return builder.finish();
}

function refuseText(file) {
	const isText = file.every((byte) => (byte >= 0x20 && byte <= 0x7e) || (byte >= 0x09 && byte <= 0x0d));
	if (isText && file.length > 0) throw new CloudError("byte 0: this is text, and neither a .splat nor a .ply file.");
}
