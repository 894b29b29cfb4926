// The worker that makes clouds: it reads files and generates the bundled cloud, while the page goes on drawing.

import { CloudError } from "./cloud.js";
import { generateCloud } from "./generated_cloud.js";
import { readCloud } from "./read_cloud.js";
import { moved, serveCalls } from "./worker_calls.js";

serveCalls(
	{
		generate: () => movedCloud(generateCloud()),

		/** Reads a File. */
		async read(file) {
			let bytes;
			try {
				bytes = new Uint8Array(await file.arrayBuffer());
			} catch {
				throw new CloudError(`${file.name}: the browser cannot read it, or has no memory for it.`);
			}
			return movedCloud(readCloud(file.name, bytes));
		},
	},
	(error) => error instanceof CloudError
);

function movedCloud({ count, positions, splats }) {
	return moved({ count, positions, splats }, [positions.buffer, splats.buffer]);
}
