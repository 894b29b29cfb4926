// The particle sorter as a WebAssembly module, for node, browsers and workers. vexmoor.d.ts says what is exported. Here
// the module is loaded, arguments are checked, and views of the module's memory are kept.

const kMaxThreads = 32; // CThreadSort::kMaxThreadCount
const kMaxCount = 0xffffffff; // what the sorter counts in 32 bits
const kIndexTypes = {
	uint32: { Array: Uint32Array, endOfIndices: 0xffffffff },
	uint16: { Array: Uint16Array, endOfIndices: 0xffff },
};
const kNoFloats = new Float32Array(0);

// A module with one function, which makes a vector of one byte: valid where there is 128-bit SIMD.
//
//   header      \0 a s m, version 1
//   type        section 1: one type, a function without parameters that returns a v128 (7B)
//   function    section 3: one function of type 0
//   code        section 10: i32.const 0 (41 00), i8x16.splat (FD 0F), i8x16.popcnt (FD 62), end (0B)
const kSimdModule = new Uint8Array([
	0x00, 0x61, 0x73, 0x6d, 0x01, 0x00, 0x00, 0x00,
	0x01, 0x05, 0x01, 0x60, 0x00, 0x01, 0x7b,
	0x03, 0x02, 0x01, 0x00,
	0x0a, 0x0a, 0x01, 0x08, 0x00, 0x41, 0x00, 0xfd, 0x0f, 0xfd, 0x62, 0x0b,
]);

export async function load(options = {}) {
	const { simd = "auto", module, threads = 1, threadsModule } = options;
	if (simd !== "auto" && typeof simd !== "boolean")
		throw new Error(`simd is true, false or "auto", not ${text(simd)}.`);
	if (!Number.isInteger(threads) || threads < 1 || threads > kMaxThreads)
		throw new Error(`threads is a whole number from 1 to ${kMaxThreads}, not ${text(threads)}.`);
	const usesSimd = simd === "auto" ? WebAssembly.validate(kSimdModule) : simd;
	if (threads > 1 && usesSimd && canShareMemory()) {
		const { startThreads } = await import("./vexmoor-threads.js");
		const source = threadsModule ?? new URL("./vexmoor-threads.wasm", import.meta.url);
		const team = await startThreads(await compile(source), threads);
		if (team !== null) return new Vexmoor(team.exports, team);
	}

	// Bundlers look for addresses of just this form.
	const source =
		module ??
		(usesSimd ? new URL("./vexmoor-simd.wasm", import.meta.url) : new URL("./vexmoor.wasm", import.meta.url));
	// Memory only grows where create asks for it, and the views notice by themselves.
	const imports = { env: { emscripten_notify_memory_growth() {} } };
	const { exports } = await WebAssembly.instantiate(await compile(source), imports);
	if (exports.create === undefined || exports._initialize === undefined)
		throw new Error("The module is not one of this package.");
	exports._initialize();
	return new Vexmoor(exports, null);
}

// Pages share memory if they are isolated from those of other origins, and node always does.
function canShareMemory() {
	return typeof SharedArrayBuffer === "function" && globalThis.crossOriginIsolated !== false;
}

async function compile(source) {
	if (source instanceof WebAssembly.Module) return source;
	if (typeof source !== "string" && !(source instanceof URL)) return WebAssembly.compile(source);

	// In node a path or a file's address is read, since fetch takes none.
	const isInNode = globalThis.process?.versions?.node !== undefined;
	const address = String(source);
	if (isInNode && !/^(https?|data|blob):/.test(address)) {
		const { readFile } = await import(/* webpackIgnore: true */ /* @vite-ignore */ "node:fs/promises");
		return WebAssembly.compile(await readFile(address.startsWith("file:") ? new URL(address) : address));
	}
	const response = await fetch(source);
	if (!response.ok)
		throw new Error(`${address} cannot be fetched: ${response.status} ${response.statusText}`.trim() + ".");
	// Servers that do not know the type application/wasm are common, and streaming insists on it.
	return WebAssembly.compile(await response.arrayBuffer());
}

class Vexmoor {
	#exports;
	#team; // the threads that sort together, or null

	constructor(exports, team) {
		this.#exports = exports;
		this.#team = team;
		const number = exports.version();
		this.version = `${Math.floor(number / 10000)}.${Math.floor(number / 100) % 100}.${number % 100}`;
		this.simd = exports.has_simd() !== 0;
		Object.freeze(this);
	}

	get threads() {
		return this.#team?.threadCount ?? 1;
	}

	createPointSorter(options) {
		return new PointSorter(this.#exports, checkedOptions(options));
	}

	endThreads() {
		this.#team?.end();
	}
}

class PointSorter {
	#exports;
	#address; // of the sorter in the module's memory; 0 once it is disposed of
	#settings;
	#buffer = null; // the memory that the views below are views of
	#sortKeys;
	#enabled;
	#indices;
	#drawn; // what the last sort has written, a view of the indices

	constructor(exports, settings) {
		const { capacity, byPosition, hasEnabled, indexType, pattern, verticesPerParticle } = settings;
		this.#exports = exports;
		this.#settings = settings;
		this.#address =
			exports.create(
				capacity,
				byPosition,
				hasEnabled,
				indexType === kIndexTypes.uint16,
				pattern.length,
				verticesPerParticle
			) >>> 0;
		if (this.#address === 0) throw new Error(`There is no memory for a sorter of ${capacity} particles.`);
		this.#update();
		new Uint32Array(this.#buffer, exports.pattern(this.#address) >>> 0, pattern.length).set(pattern);
	}

	get positions() {
		this.#update();
		return this.#settings.byPosition ? this.#sortKeys : kNoFloats;
	}
	get values() {
		this.#update();
		return this.#settings.byPosition ? kNoFloats : this.#sortKeys;
	}
	get enabled() {
		this.#update();
		return this.#enabled;
	}
	get indices() {
		this.#update();
		return this.#indices;
	}

	sort(count, camera) {
		this.#update();
		const { capacity, byPosition, pattern } = this.#settings;
		if (!Number.isInteger(count) || count < 0 || count > capacity)
			throw new Error(
				`count is a whole number from 0 to the sorter's capacity, ${capacity}, not ${text(count)}.`
			);
		if (byPosition && !(camera?.length >= 3))
			throw new Error("A sorter by position takes a camera, three numbers: x, y and z.");
		const x = byPosition ? camera[0] : 0,
			y = byPosition ? camera[1] : 0,
			z = byPosition ? camera[2] : 0;
		const drawnCount = this.#exports.sort(this.#address, count, x, y, z) >>> 0;
		const indexCount = drawnCount * pattern.length;
		if (this.#drawn.length !== indexCount) this.#drawn = this.#indices.subarray(0, indexCount);
		return this.#drawn;
	}

	dispose() {
		if (this.#address === 0) return;
		this.#exports.release(this.#address);
		this.#address = 0;
		this.#buffer = this.#sortKeys = this.#enabled = this.#indices = this.#drawn = null;
	}

	// Makes the views again if the memory has grown, which replaces its buffer and detaches all views of it.
	#update() {
		if (this.#address === 0) throw new Error("This sorter has been disposed of.");
		const exports = this.#exports;
		const buffer = exports.memory.buffer;
		if (this.#buffer === buffer) return;
		const { capacity, byPosition, hasEnabled, indexType, pattern } = this.#settings;
		this.#buffer = buffer;
		this.#sortKeys = new Float32Array(
			buffer,
			exports.sort_keys(this.#address) >>> 0,
			capacity * (byPosition ? 3 : 1)
		);
		this.#enabled = new Uint8Array(buffer, exports.enabled(this.#address) >>> 0, hasEnabled ? capacity : 0);
		this.#indices = new indexType.Array(buffer, exports.indices(this.#address) >>> 0, capacity * pattern.length);
		this.#drawn = this.#indices.subarray(0, 0);
	}
}

// The options with defaults filled in. An option that is wrong throws: behind this, every number is trusted.
function checkedOptions(options) {
	const { capacity, by = "position", indexType = "uint32", pattern = [0], enabled = false } = options ?? {};
	if (!Number.isInteger(capacity) || capacity < 0 || capacity > kMaxCount)
		throw new Error(`capacity is a whole number of particles up to ${kMaxCount}, not ${text(capacity)}.`);
	if (by !== "position" && by !== "value") throw new Error(`by is "position" or "value", not ${text(by)}.`);
	if (indexType !== "uint32" && indexType !== "uint16")
		throw new Error(`indexType is "uint32" or "uint16", not ${text(indexType)}.`);
	if (typeof enabled !== "boolean") throw new Error(`enabled is true or false, not ${text(enabled)}.`);

	const entries = Array.from(pattern ?? []);
	const isWhole = entries.length > 0 && entries.every((entry) => isIndex(entry));
	if (!isWhole || (entries.length % 3 !== 0 && !(entries.length === 1 && entries[0] === 0)))
		throw new Error(`pattern is whole triangles, three indices each, or the one index 0, not ${text(pattern)}.`);
	const largest = entries.reduce((a, b) => Math.max(a, b));
	const { verticesPerParticle = largest + 1 } = options;
	if (!isIndex(verticesPerParticle) || verticesPerParticle === 0)
		throw new Error(`verticesPerParticle is a whole number above 0, not ${text(verticesPerParticle)}.`);
	const { endOfIndices } = kIndexTypes[indexType];
	const lastIndex = Math.max(capacity - 1, 0) * verticesPerParticle + largest;
	if (lastIndex >= endOfIndices)
		throw new Error(
			`The last particle would draw index ${lastIndex}, but an index of type ${indexType} has to be ` +
				`below ${endOfIndices}.`
		);
	return {
		capacity,
		byPosition: by === "position",
		hasEnabled: enabled,
		indexType: kIndexTypes[indexType],
		pattern: entries,
		verticesPerParticle,
	};
}

function isIndex(value) {
	return Number.isInteger(value) && value >= 0 && value < kMaxCount;
}

function text(value) {
	if (Array.isArray(value) || ArrayBuffer.isView(value)) return `[${Array.from(value).join(", ")}]`;
	return typeof value === "string" ? `"${value}"` : String(value);
}
