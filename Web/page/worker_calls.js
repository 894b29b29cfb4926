// Functions of a worker, called from the page: each call is answered by a promise.

/** A worker whose functions are called by name. */
export class WorkerCalls {
	/** @param {URL} url Of a module that calls serveCalls. */
	constructor(url) {
		this.waiting = new Map();
		this.nextId = 0;
		this.worker = new Worker(url, { type: "module" });
		this.worker.onmessage = ({ data: { id, result, refusal, failure } }) => {
			const { resolve, reject } = this.waiting.get(id);
			this.waiting.delete(id);
			if (refusal !== undefined) reject(new RefusedCall(refusal));
			else if (failure !== undefined) reject(new Error(failure));
			else resolve(result);
		};
		this.worker.onerror = (event) => {
			const error = new Error(event.message ?? "a worker could not be loaded");
			for (const { reject } of this.waiting.values()) reject(error);
			this.waiting.clear();
		};
	}

	/** Calls a function. Memory of the buffers in `transfer` moves to the worker. */
	call(name, argument, transfer = []) {
		return new Promise((resolve, reject) => {
			const id = this.nextId++;
			this.waiting.set(id, { resolve, reject });
			this.worker.postMessage({ id, name, argument }, transfer);
		});
	}
}

/** What was asked for cannot be done, for a reason that the message says to the user. */
export class RefusedCall extends Error {}

/**
 * In a worker: answers calls, one after the other. A function returns its result or a promise of it; an object that
 * `moved` made moves memory along. An error that isRefusal accepts reaches the page as a RefusedCall.
 */
export function serveCalls(functions, isRefusal = () => false) {
	let last = Promise.resolve();
	self.onmessage = ({ data: { id, name, argument } }) => {
		last = last.then(async () => {
			try {
				const result = await functions[name](argument);
				if (result instanceof Moved) self.postMessage({ id, result: result.value }, result.transfer);
				else self.postMessage({ id, result });
			} catch (error) {
				self.postMessage(isRefusal(error) ? { id, refusal: error.message } : { id, failure: String(error) });
			}
		});
	};
}

class Moved {
	constructor(value, transfer) {
		this.value = value;
		this.transfer = transfer;
	}
}

/** A result whose buffers move to the page instead of being copied. */
export function moved(value, transfer) {
	return new Moved(value, transfer);
}
