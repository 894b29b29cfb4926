// Reads a file of either kind, told by its first bytes and its name.

import { CloudError } from "./cloud.js";
import { readPlyFile } from "./ply_cloud.js";
import { startsAsPly } from "./ply_file.js";
import { readSplatFile } from "./splat_file.js";

/**
 * @param {string} name
 * @param {Uint8Array} file
 * Throws a CloudError with a sentence that names the file.
 */
export function readCloud(name, file) {
	try {
		if (file.length === 0) throw new CloudError("it is empty.");
		return startsAsPly(file) || /\.ply$/i.test(name) ? readPlyFile(file) : readSplatFile(file);
	} catch (error) {
		if (error instanceof CloudError) throw new CloudError(`${name}: ${error.message}`);
		throw error;
	}
}
