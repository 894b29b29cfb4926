// The package as npm hands it out: what is in it, that it installs and runs, its types, and what it weighs.

import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdtempSync, readdirSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, test } from "node:test";
import { gzipSync } from "node:zlib";

import { kBuild, load } from "./package.mjs";

const kMaxBytes = 31000; // of a module and its scripts, compressed

const folder = mkdtempSync(join(tmpdir(), "vexmoor-web-"));
after(() => rmSync(folder, { recursive: true }));

function run(command, ...parameters) {
	try {
		return execFileSync(command, parameters, { cwd: folder, encoding: "utf8", stdio: ["ignore", "pipe", "pipe"] });
	} catch (error) {
		throw new Error(`${command} ${parameters.join(" ")}: ${error.stdout}${error.stderr}`);
	}
}

const [tarball] = readdirSync(kBuild).filter((name) => name.endsWith(".tgz"));

test("what is in it", () => {
	const files = run("tar", "--list", "--file", join(kBuild, tarball)).trim().split("\n").sort();
	assert.deepEqual(
		files,
		[
			"COPYRIGHT",
			"README.md",
			"package.json",
			"vexmoor-simd.wasm",
			"vexmoor-threads.js",
			"vexmoor-threads.wasm",
			"vexmoor-worker.js",
			"vexmoor.d.ts",
			"vexmoor.js",
			"vexmoor.wasm",
		].map((name) => `package/${name}`)
	);
});

test("its version is the library's", async () => {
	const { version } = JSON.parse(readFileSync(`${kBuild}/package/package.json`, "utf8"));
	assert.equal(version, (await load()).version);
	assert.equal(tarball, `vexmoor-${version}.tgz`);
});

test("installed by npm, it is imported by its name, and the README's example runs", () => {
	writeFileSync(
		join(folder, "package.json"),
		'{ "name": "user", "version": "1.0.0", "private": true, "type": "module" }'
	);
	run("npm", "install", "--offline", "--no-audit", "--no-fund", join(kBuild, tarball));
	const readme = readFileSync(`${kBuild}/package/README.md`, "utf8");
	const [, example] = readme.match(/```js\n(.*?)```/s);
	writeFileSync(
		join(folder, "example.js"),
		`${example}\nconsole.log(drawn.length, drawn.constructor.name, vexmoor.simd);`
	);
	assert.equal(run("node", "example.js"), "600000 Uint32Array true\n");
});

test("types: right uses compile, and wrong ones do not", () => {
	const right = `
		import { load, type PointSorter, type Vexmoor } from "vexmoor";
		const vexmoor: Vexmoor = await load({ simd: "auto", module: new URL("https://localhost/vexmoor.wasm") });
		const team: Vexmoor = await load({ threads: 4, threadsModule: "vexmoor-threads.wasm" });
		const threadCount: number = team.threads;
		team.endThreads();
		const wide = vexmoor.createPointSorter({ capacity: 10, by: "value", pattern: [0, 1, 2] });
		const drawn: Uint32Array = wide.sort(10);
		const narrow: PointSorter<Uint16Array> =
			vexmoor.createPointSorter({ capacity: 10, indexType: "uint16", enabled: true });
		const halves: Uint16Array = narrow.sort(10, new Float32Array(3));
		const either: PointSorter = drawn.length > 3 ? wide : narrow;
		either.positions.set([1, 2, 3]);
		either.dispose();
		export const lengths: number[] = [threadCount, halves.length, either.indices.length];`;
	const wrong = [
		"vexmoor.createPointSorter({});",
		'vexmoor.createPointSorter({ capacity: 1, by: "age" });',
		'vexmoor.createPointSorter({ capacity: 1, indexType: "uint8" });',
		"vexmoor.createPointSorter({ capacity: 1 }).positions = new Float32Array(3);",
		"const drawn: Uint16Array = vexmoor.createPointSorter({ capacity: 1 }).sort(1, [0, 0, 0]);",
		"vexmoor.createPointSorter({ capacity: 1 }).sort();",
		'vexmoor.version = "2";',
		"vexmoor.threads = 2;",
	];
	const compiler = [
		"--strict",
		"--noEmit",
		"--target",
		"es2022",
		"--module",
		"node16",
		"--moduleResolution",
		"node16",
		"--lib",
		"es2022,dom",
	];
	writeFileSync(join(folder, "right.mts"), right);
	run("tsc", ...compiler, "right.mts");
	const lines = wrong.map((line) => `\t// @ts-expect-error\n\t{ ${line} }\n`);
	writeFileSync(
		join(folder, "wrong.mts"),
		`import type { Vexmoor } from "vexmoor";\nexport function wrong(vexmoor: Vexmoor) {\n${lines.join("")}}\n`
	);
	run("tsc", ...compiler, "wrong.mts");
});

const kLoaded = {
	"vexmoor-simd.wasm": ["vexmoor.js"],
	"vexmoor.wasm": ["vexmoor.js"],
	"vexmoor-threads.wasm": ["vexmoor.js", "vexmoor-threads.js", "vexmoor-worker.js"],
};
for (const [module, scripts] of Object.entries(kLoaded)) {
	test(`${module} and its scripts are below ${kMaxBytes / 1000} KB, compressed`, () => {
		const sizes = [module, ...scripts].map(
			(file) => gzipSync(readFileSync(`${kBuild}/package/${file}`), { level: 9 }).length
		);
		const sum = sizes.reduce((a, b) => a + b);
		assert.ok(sum < kMaxBytes, `${sum} bytes`);
	});
}

test("the module without SIMD needs nothing that the first engines did not have", () => {
	const check = (name) =>
		run("wasm-opt", "--mvp-features", join(kBuild, "package", name), "-o", join(folder, "checked.wasm"));
	check("vexmoor.wasm");
	assert.throws(() => check("vexmoor-simd.wasm"));
});

test("the modules import what the scripts give", () => {
	const importsOf = (name) =>
		WebAssembly.Module.imports(new WebAssembly.Module(readFileSync(`${kBuild}/package/${name}`)))
			.map(({ module, name, kind }) => `${module}.${name}: ${kind}`)
			.sort();
	for (const name of ["vexmoor-simd.wasm", "vexmoor.wasm"])
		assert.deepEqual(importsOf(name), ["env.emscripten_notify_memory_growth: function"]);
	assert.deepEqual(importsOf("vexmoor-threads.wasm"), [
		"env.emscripten_notify_memory_growth: function",
		"env.go_on_waiting: function",
		"env.memory: memory",
	]);
});
