// Threads for a module with shared memory: workers, each with an instance of its own. vexmoor.js imports this where
// threads are asked for and memory can be shared.

const kFirstPages = 16; // of 64 KB: what the module is linked for
const kMaxPages = [65536, 32768, 16384, 8192]; // 4 GB; less where the engine has no room for so many addresses

// A sort waits this long for a worker that has a job, in milliseconds. Steps between two looks count as the longest
// one at the most, so that a machine that sleeps in between has lost no worker.
const kPatience = 4000;
const kLongestStep = 100;

const kStartTime = 20000; // milliseconds that a worker has to get ready

/** A sort has waited in vain for a worker. */
class LostWorker extends Error {}

/**
 * Instantiates the module, starts workers, and waits until they are ready.
 * @returns The module's exports, the number of threads with the calling one, and a function that ends the others. Null
 * where memory cannot be shared or no worker can be started.
 */
export async function startThreads(module, threadCount) {
	const memory = sharedMemory();
	if (memory === null) return null;
	const patience = new Patience();
	const instance = await WebAssembly.instantiate(module, importsOf(memory, (isFirst) => patience.ask(isFirst)));
	const { exports } = instance;
	if (exports.work === undefined) throw new Error("The module for threads is not one of this package.");
	exports._initialize();

	const starts = Array.from({ length: threadCount - 1 }, () =>
		startWorker({ module, memory, stack: exports.create_stack() >>> 0 })
	);
	const workers = (await Promise.all(starts)).filter((worker) => worker !== null);
	if (workers.length === 0) return null;
	const team = {
		threadCount: 0,
		exports: { ...exports, memory, sort },
		end() {
			for (const worker of workers.splice(0)) worker.terminate();
			setThreadCount();
		},
	};
	setThreadCount();
	return team;

	function setThreadCount() {
		team.threadCount = workers.length + 1;
		exports.set_threads(team.threadCount, maySleep());
	}

	// Nothing that a sort reads is changed by one that was given up, so the calling thread can start again.
	function sort(...parameters) {
		const stack = exports.__stack_pointer.value;
		try {
			return exports.sort(...parameters);
		} catch (error) {
			if (!(error instanceof LostWorker)) throw error;
			exports.__stack_pointer.value = stack;
			team.end();
			return exports.sort(...parameters);
		}
	}
}

/** What the module imports. */
export function importsOf(memory, goOnWaiting = () => {}) {
	return { env: { memory, emscripten_notify_memory_growth() {}, go_on_waiting: goOnWaiting } };
}

// The main thread of a page may not.
function maySleep() {
	try {
		Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 1);
		return true;
	} catch {
		return false;
	}
}

function sharedMemory() {
	for (const maximum of kMaxPages) {
		try {
			return new WebAssembly.Memory({ initial: kFirstPages, maximum, shared: true });
		} catch {
			// the next one is smaller
		}
	}
	return null;
}

class Patience {
	#asked = 0; // when
	#waited = 0;

	/** Throws when it has been asked for long enough. */
	ask(isFirst) {
		const now = performance.now();
		this.#waited = isFirst ? 0 : this.#waited + Math.min(now - this.#asked, kLongestStep);
		this.#asked = now;
		if (this.#waited > kPatience) throw new LostWorker();
	}
}

/** Resolves to a worker that is ready, or to null. */
async function startWorker(data) {
	if (data.stack === 0) return null;
	let worker;
	try {
		worker = await (globalThis.process?.versions?.node !== undefined ? workerInNode(data) : workerInBrowser(data));
	} catch {
		return null; // by a content-security policy, for example
	}
	return new Promise((resolve) => {
		const giveUp = () => {
			worker.terminate();
			resolve(null);
		};
		const timer = setTimeout(giveUp, kStartTime);
		worker.onReady(() => {
			clearTimeout(timer);
			resolve(worker);
		});
		worker.onFailure(() => {
			clearTimeout(timer);
			giveUp();
		});
	});
}

function workerInBrowser(data) {
	// Bundlers look for workers of just this form.
	const worker = new Worker(new URL("./vexmoor-worker.js", import.meta.url), { type: "module" });
	try {
		worker.postMessage(data);
	} catch (error) {
		worker.terminate();
		throw error; // shared memory may not be posted here
	}
	return {
		onReady: (listener) => (worker.onmessage = listener),
		onFailure: (listener) => (worker.onerror = worker.onmessageerror = listener),
		terminate: () => worker.terminate(),
	};
}

async function workerInNode(workerData) {
	const { Worker } = await import(/* webpackIgnore: true */ /* @vite-ignore */ "node:worker_threads");
	const address = new URL(/* webpackIgnore: true */ /* @vite-ignore */ "./vexmoor-worker.js", import.meta.url);
	const worker = new Worker(address, { workerData, execArgv: [] });
	return {
		onReady: (listener) =>
			worker.once("message", () => {
				worker.unref(); // the program ends without waiting for it
				listener();
			}),
		onFailure: (listener) => worker.once("error", listener),
		terminate: () => worker.terminate(),
	};
}
