// Serves a folder of static files on 127.0.0.1, at a port that is free.

import { readFile } from "node:fs/promises";
import { createServer } from "node:http";
import { extname, join, normalize } from "node:path";

const kTypes = { ".html": "text/html", ".js": "text/javascript", ".css": "text/css", ".wasm": "application/wasm" };

/** @returns {Promise<{address: string, close: () => void}>} */
export async function serve(folder) {
	const server = createServer(async (request, response) => {
		const { pathname } = new URL(request.url, "http://127.0.0.1");
		try {
			const content = await readFile(join(folder, normalize(pathname === "/" ? "/index.html" : pathname)));
			response.setHeader("Content-Type", kTypes[extname(pathname)] ?? "text/html");
			response.end(content);
		} catch {
			response.statusCode = 404;
			response.end();
		}
	});
	await new Promise((resolve) => server.listen(0, "127.0.0.1", resolve));
	return { address: `http://127.0.0.1:${server.address().port}/`, close: () => server.close() };
}
