// The particle sorter as a WebAssembly module: what vexmoor.js exports.

/** How the module is loaded. */
export interface LoadOptions {
	/**
	 * Whether the module with 128-bit SIMD is loaded. Both give the same bytes. `"auto"`, the default, asks the engine
	 * whether it has SIMD.
	 */
	simd?: boolean | "auto";
	/**
	 * The module itself, or its address, for bundlers, content-security rules and workers: a compiled module can be
	 * posted to a worker. `simd` is then not looked at. By default it lies beside vexmoor.js.
	 */
	module?: BufferSource | URL | string | WebAssembly.Module;
	/**
	 * How many threads sort together, the calling one among them: from 1, the default, to 32. The others are workers.
	 * The indices are the same. Threads need shared memory, which pages have if they are isolated from other origins,
	 * and SIMD. Where something is missing, or workers cannot be started, fewer threads sort: `Vexmoor.threads` says
	 * how many.
	 */
	threads?: number;
	/** The module that sorts on several threads, or its address. By default it lies beside vexmoor.js. */
	threadsModule?: BufferSource | URL | string | WebAssembly.Module;
}

/**
 * Loads a module with a memory of its own, and starts workers if there are to be several threads.
 * Rejects with an Error where the file cannot be had or is no such module, or an option is wrong.
 */
export function load(options?: LoadOptions): Promise<Vexmoor>;

/** A loaded module. It belongs to the thread that loaded it, which is the one that calls it. */
export interface Vexmoor {
	/** The library's version, such as "1.0.0". */
	readonly version: string;
	/** Whether the module has 128-bit SIMD. */
	readonly simd: boolean;
	/**
	 * How many threads sort together: 1, or up to as many as were asked for. Above 1, arrays are views of a
	 * SharedArrayBuffer.
	 */
	readonly threads: number;

	/**
	 * Takes memory for a draw call of up to `capacity` particles, with all that its sorts use. Views of other sorters'
	 * arrays may become detached by this: read the properties again, they are up to date.
	 * Throws an Error where an option is wrong or there is no memory: 2 GB for a sorter, and 4 GB for all of a module.
	 */
	createPointSorter(options: PointSorterOptions & { indexType: "uint16" }): PointSorter<Uint16Array>;
	createPointSorter(options: PointSorterOptions & { indexType?: "uint32" }): PointSorter<Uint32Array>;
	createPointSorter(options: PointSorterOptions): PointSorter;

	/** Stops the workers. Sorters go on with the calling thread alone. Does nothing where there is one thread. */
	endThreads(): void;
}

/** What a sorter is made for. */
export interface PointSorterOptions {
	/** The most particles of one sort. */
	capacity: number;
	/**
	 * `"position"`, the default: three floats per particle and a camera, the farthest particle first. `"value"`: one
	 * float per particle, the lowest first.
	 */
	by?: "position" | "value";
	/** Width of an index, by default `"uint32"`. With `"uint16"`, every index has to be below 65,535. */
	indexType?: "uint32" | "uint16";
	/**
	 * The indices that each particle draws, relative to its first vertex: whole triangles, or one index. A quad is
	 * `[0, 1, 2, 0, 2, 3]`. By default `[0]`: the output is the sorted list of particles' numbers.
	 */
	pattern?: ArrayLike<number>;
	/**
	 * Vertices of a particle; particle i has those from `i * verticesPerParticle` on. By default the pattern's largest
	 * index, plus 1.
	 */
	verticesPerParticle?: number;
	/**
	 * Whether there is a byte per particle that says if it is drawn; by default false. Particles are numbered without
	 * those that are not drawn, so vertices are those of drawn particles, one behind the other.
	 */
	enabled?: boolean;
}

/** A draw call's arrays, in the module's memory, and its sort. */
export interface PointSorter<Indices extends Uint32Array | Uint16Array = Uint32Array | Uint16Array> {
	/** x, y and z of each particle: write here. Zeros at first. Empty for a sorter by value. */
	readonly positions: Float32Array;
	/** A value per particle: write here. Zeros at first. Empty for a sorter by position. */
	readonly values: Float32Array;
	/** A byte per particle, 0 for one that is not drawn; all are 1 at first. Empty unless asked for. */
	readonly enabled: Uint8Array;
	/** The whole output, of which a sort writes the beginning and leaves the rest as it was. Unspecified at first. */
	readonly indices: Indices;

	/**
	 * Sorts the first `count` particles and returns a view of the indices written, in drawing order. It stays valid
	 * until the next sort. Nothing is allocated; the view is the same object as long as as many indices are written and
	 * the memory has not grown.
	 * @param camera x, y and z, in the space of the positions; not looked at by a sorter by value.
	 * Throws an Error, and writes nothing, where an argument is wrong.
	 */
	sort(count: number, camera?: ArrayLike<number>): Indices;

	/** Gives the memory back. The sorter and its views must not be used any more. */
	dispose(): void;
}
