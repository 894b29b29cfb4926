// Serves the page until it is stopped: node main.mjs FOLDER PORT

import { serve } from "./static_server.mjs";

const [folder, port] = process.argv.slice(2);
try {
	const { address } = await serve(folder, { port: Number(port) });
	console.log(`The page: ${address}`);
} catch (error) {
	const reason = error.code === "EADDRINUSE" ? "is in use" : `cannot be had (${error.code})`;
	process.stderr.write(`web.sh: port ${port} ${reason}\n`);
	process.exit(2);
}
