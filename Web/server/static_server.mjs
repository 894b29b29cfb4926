// Serves a folder of static files on 127.0.0.1.

import { readFile } from "node:fs/promises";
import { createServer } from "node:http";
import { extname, join, normalize } from "node:path";

const kTypes = { ".html": "text/html", ".js": "text/javascript", ".css": "text/css", ".wasm": "application/wasm" };

// What isolates a page from those of other origins, so that it may share memory with its workers.
const kIsolation = {
	"Cross-Origin-Opener-Policy": "same-origin",
	"Cross-Origin-Embedder-Policy": "require-corp",
};

/**
 * Port 0 is any that is free. Rejects where the port is taken.
 * @returns {Promise<{address: string, close: () => void}>}
 */
export async function serve(folder, { port = 0, isIsolated = true } = {}) {
	const server = createServer(async (request, response) => {
		const { pathname } = new URL(request.url, "http://127.0.0.1");
		try {
			const content = await readFile(join(folder, normalize(pathname === "/" ? "/index.html" : pathname)));
			response.writeHead(200, {
				"Content-Type": kTypes[extname(pathname)] ?? "text/html",
				"Cache-Control": "no-cache",
				...(isIsolated ? kIsolation : {}),
			});
			response.end(content);
		} catch {
			response.statusCode = 404;
			response.end();
		}
	});
	await new Promise((resolve, reject) => server.once("error", reject).listen(port, "127.0.0.1", resolve));
	return { address: `http://127.0.0.1:${server.address().port}/`, close: () => server.close() };
}
