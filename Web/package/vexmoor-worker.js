// A worker that takes part in sorts: an instance of the module in the memory of the thread that has started it, with a
// stack of its own. It says that it is ready and then runs jobs, and hears no message any more.

import { importsOf } from "./vexmoor-threads.js";

if (globalThis.process?.versions?.node !== undefined)
	import(/* webpackIgnore: true */ /* @vite-ignore */ "node:worker_threads").then(({ parentPort, workerData }) =>
		takePart(workerData, parentPort)
	);
else globalThis.onmessage = ({ data }) => takePart(data, globalThis);

function takePart({ module, memory, stack }, parent) {
	const { exports } = new WebAssembly.Instance(module, importsOf(memory));
	exports.__stack_pointer.value = stack;
	exports.__wasm_init_tls(stack);
	parent.postMessage("ready");
	exports.work();
}
