// The order of the library on this machine, by native_order.cpp.

import { execFileSync } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

/**
 * @param by "position": floats are positions, seen from a camera. "value": floats are values.
 * @returns {Uint32Array} Numbers of particles in drawing order.
 */
export function nativeOrder(by, floats, camera = []) {
	const folder = mkdtempSync(join(tmpdir(), "vexmoor-"));
	try {
		const file = join(folder, "floats");
		writeFileSync(file, floats);
		const output = execFileSync(
			join(process.env.VEXMOOR_WEB_BUILD, "tests/native_order"),
			[by, file, ...camera.map(String)],
			{ maxBuffer: 1 << 28 }
		);
		return new Uint32Array(output.buffer.slice(output.byteOffset, output.byteOffset + output.byteLength));
	} finally {
		rmSync(folder, { recursive: true });
	}
}
