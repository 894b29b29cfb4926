// Readers of cloud files: what is read, and what is refused with which sentence.

import assert from "node:assert/strict";
import { test } from "node:test";
import { CloudError, kWordsPerSplat } from "../../page/cloud.js";
import { readCloud } from "../../page/read_cloud.js";
import { plyFile, splat, splatFile, trainedVertices } from "./files.mjs";

const kSplats = [
	splat({ position: [1, 2, 3], colour: [255, 0, 0, 255] }),
	splat({ position: [2, 2, 3], scales: [0.1, 0.2, 0.4], colour: [0, 128, 255, 64], rotation: [0, 0.6, 0.8, 0] }),
	splat({ position: [-1, 0, 5], scales: [0.05, 0.1, 0.025] }),
];
const kFormats = ["ascii", "binary_little_endian", "binary_big_endian"];

// What a cloud holds, as numbers that files are written with: how the reader places it is taken back.
function decoded(cloud, scale, first) {
	return Array.from({ length: cloud.count }, (_, i) => {
		const words = cloud.splats.subarray(kWordsPerSplat * i, kWordsPerSplat * (i + 1));
		const halves = new Int16Array(Uint32Array.from(words).buffer);
		const logScales = new Uint16Array(halves.buffer);
		const rotation = [...halves.subarray(8, 12)].map((number) => number / 32767);
		return {
			offset: [0, 1, 2].map(
				(axis) => (cloud.positions[3 * i + axis] - cloud.positions[axis]) / scale + first[axis]
			),
			scales: [...logScales.subarray(12, 15)].map((log) => Math.exp((log / 65535) * 64 - 32) / scale),
			colour: [0, 8, 16, 24].map((bit) => (words[3] >>> bit) & 0xff),
			rotation,
		};
	});
}

function assertNear(actual, expected, tolerance, what) {
	actual.forEach((value, i) =>
		assert.ok(Math.abs(value - expected[i]) <= tolerance, `${what} ${actual}, not ${expected}`)
	);
}

function assertHolds(cloud, splats) {
	assert.equal(cloud.count, splats.length);
	const distance = (a, b) => Math.hypot(...a.map((x, i) => x - b[i]));
	const placed = [0, 1].map((i) => [...cloud.positions.subarray(3 * i, 3 * i + 3)]);
	const scale = distance(placed[0], placed[1]) / distance(splats[0].position, splats[1].position);
	decoded(cloud, scale, splats[0].position).forEach((found, i) => {
		assertNear(found.offset, splats[i].position, 1e-5, `position ${i}`);
		found.scales.forEach((value, j) => assertNear([value / splats[i].scales[j]], [1], 0.01, `scale ${j} of ${i}`));
		assertNear(found.colour, splats[i].colour, 1, `colour ${i}`);
		assertNear(found.rotation, splats[i].rotation, 0.01, `rotation ${i}`);
	});
}

function refusal(name, file) {
	try {
		readCloud(name, file);
	} catch (error) {
		assert.ok(error instanceof CloudError, `${error.stack}`);
		return error.message;
	}
	return null;
}

function assertSentence(sentence, what) {
	assert.match(sentence ?? "", /^\S+: .*\.$/s, what);
}

test("A .splat file is read whole", () => {
	assertHolds(readCloud("a.splat", splatFile(kSplats)), kSplats);
});

for (const format of kFormats) {
	test(`Trained splats are read from ${format} PLY`, () => {
		assertHolds(readCloud("a.ply", plyFile(format, [trainedVertices(kSplats)])), kSplats);
	});

	test(`Points between lists and other elements are read from ${format} PLY`, () => {
		const file = plyFile(format, [
			{
				name: "face",
				properties: ["list uchar int corners", "uchar kind"],
				rows: [
					[[0, 1, 2], 7],
					[[], 8],
					[[1, 2], 9],
				],
			},
			{
				name: "vertex",
				properties: [
					"list ushort float tags",
					"double x",
					"float y",
					"short z",
					"uchar red",
					"uchar green",
					"uchar blue",
				],
				rows: [
					[[0.5, 0.25], 4000000.5, 0, 1, 10, 20, 30],
					[[], 4000001.5, 0, 1, 255, 0, 128],
				],
			},
			{ name: "none", properties: [], rows: [] },
		]);
		const cloud = readCloud("points.ply", file);
		assert.equal(cloud.count, 2);
		// A float has no room for the half beside 4,000,000.5: positions are kept relative to the first.
		const apart = cloud.positions[3] - cloud.positions[0];
		assert.ok(Math.abs(apart - 2) < 1e-6, `${apart}`);
		assert.deepEqual([...cloud.splats.subarray(3, 4)], [0xff1e140a]);
		assert.deepEqual([...cloud.splats.subarray(kWordsPerSplat + 3, kWordsPerSplat + 4)], [0xff8000ff]);
	});
}

for (const [name, lineEnd] of Object.entries({ "carriage returns": "\r", "carriage returns and newlines": "\r\n" }))
	test(`Lines may end with ${name}`, () => {
		for (const format of kFormats)
			assertHolds(readCloud("a.ply", plyFile(format, [trainedVertices(kSplats)], lineEnd)), kSplats);
	});

test("Points without colours are coloured by height", () => {
	const rows = Array.from({ length: 11 }, (_, i) => [0, i, 0]);
	const vertices = { name: "vertex", properties: ["float x", "float y", "float z"], rows };
	const cloud = readCloud("a.ply", plyFile("ascii", [vertices]));
	const colours = new Set(rows.map((_, i) => cloud.splats[kWordsPerSplat * i + 3]));
	assert.ok(colours.size > 8, `${colours.size} colours`);
});

test("A cloud is placed around the origin, but for stragglers", () => {
	const splats = Array.from({ length: 1000 }, (_, i) => splat({ position: [500 + (i % 10), i % 7, i % 13] }));
	splats[17] = splat({ position: [-1e5, 0, 0] });
	const { count, positions } = readCloud("a.splat", splatFile(splats));
	const distances = Array.from({ length: count }, (_, i) => Math.hypot(...positions.subarray(3 * i, 3 * i + 3)));
	const far = distances.flatMap((distance, i) => (distance > 1.0001 ? [i] : []));
	assert.ok(far.length >= 1 && far.length <= 10, `${far.length} of 1,000 lie farther out than 1`);
	assert.ok(far.includes(17) && distances[17] > 1e4);
	assert.ok(Math.max(...distances.filter((_, i) => i !== 17)) < 1.1);
});

test("Every shorter file is refused with a sentence, or is whole", () => {
	const files = { "a.splat": splatFile(kSplats) };
	for (const format of kFormats) {
		files[`${format}.ply`] = plyFile(format, [trainedVertices(kSplats)]);
		files[`${format}_lists.ply`] = plyFile(format, [
			{
				name: "vertex",
				properties: ["float x", "float y", "float z", "list uchar short tags"],
				rows: [
					[1, 2, 3, [4, 5]],
					[2, 3, 4, [5]],
				],
			},
		]);
	}
	for (const [name, file] of Object.entries(files))
		for (let size = 0; size < file.length; ++size) {
			const sentence = refusal(name, file.subarray(0, size));
			const isWhole =
				name === "a.splat" ? size > 0 && size % 32 === 0 : /^ascii/.test(name) && size >= file.length - 2;
			if (!isWhole) assertSentence(sentence, `${name} cut to ${size} of ${file.length} bytes`);
			else if (name === "a.splat") assert.equal(sentence, null);
		}
});

test("Files with any one byte changed are read or refused with a sentence", () => {
	const files = kFormats.map((format) => plyFile(format, [trainedVertices(kSplats.slice(0, 2))]));
	files.push(splatFile(kSplats));
	for (const file of files)
		for (let at = 0; at < file.length; ++at)
			for (const value of [0, 0x20, 0x39, 0xff, file[at] ^ 0x80]) {
				const changed = Uint8Array.from(file);
				changed[at] = value;
				const sentence = refusal("changed.ply", changed);
				if (sentence !== null) assertSentence(sentence, `byte ${at} as ${value}`);
			}
});

const kHeader = "ply\nformat ascii 1.0\n";
const kXyz = "property float x\nproperty float y\nproperty float z\n";
const kRefused = [
	["an empty file", "a.splat", "", /it is empty/],
	["text", "a.splat", "Not a cloud of splats at all.\n", /byte 0: this is text/],
	[
		"a splat cut short",
		"a.splat",
		splatFile(kSplats).subarray(0, 70),
		/byte 64: a splat takes 32 bytes, and after 2 of them there are 6 left/,
	],
	[
		"a position of NaN",
		"a.splat",
		splatFile([kSplats[0], splat({ position: [0, NaN, 0] })]),
		/byte 32: splat 1 has no finite 'y'/,
	],
	[
		"an infinite scale",
		"a.splat",
		splatFile([splat({ scales: [1, Infinity, 1] })]),
		/byte 0: splat 0 has no finite 'scale_1'/,
	],
	["a negative scale", "a.splat", splatFile([splat({ scales: [1, 1, -1] })]), /splat 0 has a negative 'scale_2'/],
	["no rotation", "a.splat", splatFile([splat({ rotation: [0, 0, 0, 0] })]), /splat 0 has a rotation of length 0/],
	[
		"splats that all lie together",
		"a.splat",
		splatFile([splat(), splat()]),
		/all 2 splats lie at one and the same position/,
	],
	["another format", "a.ply", "PLY\n", /byte 0: a PLY file starts with a line 'ply', this one with 'PLY\?'/],
	["no format", "a.ply", "ply\nend_header\n", /line 2: the header ends without a 'format'/],
	["a foreign format", "a.ply", "ply\nformat binary 1.0\n", /line 2: 'format' takes ascii, .* not 'binary'/],
	[
		"a foreign version",
		"a.ply",
		"ply\nformat ascii 2.0\n",
		/line 2: the version is 1.0 in every PLY file, not '2.0'/,
	],
	["a foreign keyword", "a.ply", `${kHeader}vertices 3\n`, /line 3: 'vertices' is no keyword/],
	["a keyword of every object", "a.ply", `${kHeader}constructor\n`, /line 3: 'constructor' is no keyword/],
	["a foreign type", "a.ply", `${kHeader}element vertex 1\nproperty real x\n`, /line 4: 'real' is no type/],
	["a word too many", "a.ply", `${kHeader}element vertex 1 2\n`, /line 3: '2' is one word too many/],
	["no vertices", "a.ply", `${kHeader}end_header\n`, /line 3: the header ends without an element 'vertex'/],
	["no vertex", "a.ply", `${kHeader}element vertex 0\n${kXyz}end_header\n`, /there is no splat in it/],
	["an element twice", "a.ply", `${kHeader}element a 0\nelement a 0\n`, /line 4: there are two elements 'a'/],
	[
		"a property twice",
		"a.ply",
		`${kHeader}element a 0\nproperty int b\nproperty int b\n`,
		/line 5: there are two properties 'b'/,
	],
	[
		"a property of nothing",
		"a.ply",
		`${kHeader}property int b\n`,
		/line 3: there is a property before the first element/,
	],
	[
		"a count that is none",
		"a.ply",
		`${kHeader}element vertex -1\n`,
		/line 3: the element 'vertex' has a count of '-1'/,
	],
	[
		"a list counted in fractions",
		"a.ply",
		`${kHeader}element a 0\nproperty list float int b\n`,
		/line 4: a list's count is of a type of whole numbers/,
	],
	[
		"vertices without z",
		"a.ply",
		`${kHeader}element vertex 1\nproperty float x\nproperty float y\nend_header\n1 2\n`,
		/the header: a point has to have a number 'z'/,
	],
	[
		"splats without opacity",
		"a.ply",
		`${kHeader}element vertex 1\n${kXyz}property float f_dc_0\nproperty float f_dc_1\n` +
			"property float f_dc_2\nend_header\n1 2 3 4 5 6\n",
		/the header: a splat has to have a number 'opacity'/,
	],
	[
		"packed splats",
		"a.ply",
		`${kHeader}element vertex 1\nproperty uint packed_position\nend_header\n1\n`,
		/the header: its vertices are packed in chunks/,
	],
	[
		"more vertices than bytes",
		"a.ply",
		`${kHeader}element vertex 4000000000\n${kXyz}end_header\n1 2 3\n`,
		/promises 4,000,000,000 of the element 'vertex', of at least 6 bytes each.* room for 1/,
	],
	[
		"fewer rows than promised",
		"a.ply",
		`${kHeader}element vertex 3\n${kXyz}end_header\n11111 22222 33333\n1 2 3\n`,
		/line 9: the file ends after 2 of the 3/,
	],
	[
		"a word that is no number",
		"a.ply",
		`${kHeader}element vertex 1\n${kXyz}end_header\n1 0x2 3\n`,
		/line 8: 'vertex' 0 has a 'y' of '0x2', which is no number/,
	],
	[
		"a fraction in whole numbers",
		"a.ply",
		`${kHeader}element vertex 1\n${kXyz}property uchar red\nend_header\n1 2 3 4.5\n`,
		/line 9: 'vertex' 0 has a 'red' of '4.5', which is no whole number/,
	],
	[
		"a number that is not finite",
		"a.ply",
		`${kHeader}element vertex 1\n${kXyz}end_header\n1 nan 3\n`,
		/line 8: vertex 0 has no finite 'y'/,
	],
	[
		"a number beyond a float",
		"a.ply",
		`${kHeader}element vertex 1\n${kXyz.replaceAll("float", "double")}end_header\n1 1e39 3\n`,
		/vertex 0 has no finite 'y'/,
	],
	[
		"a row with too much",
		"a.ply",
		`${kHeader}element vertex 1\n${kXyz}end_header\n1 2 3 4\n`,
		/line 8: 'vertex' 0 goes on after its values, with '4'/,
	],
	[
		"a row with too little",
		"a.ply",
		`${kHeader}element vertex 1\n${kXyz}end_header\n11111 2\n`,
		/line 8: 'vertex' 0 ends before its 'z'/,
	],
	[
		"rows after the last",
		"a.ply",
		`${kHeader}element vertex 1\n${kXyz}end_header\n1 2 3\n\n4 5 6\n`,
		/line 10: the file goes on/,
	],
	[
		"bytes after the last",
		"a.ply",
		Buffer.concat([plyFile("binary_little_endian", [trainedVertices(kSplats)]), Buffer.from([1])]),
		/the file goes on after all that its header promises/,
	],
	[
		"a list longer than the file",
		"a.ply",
		`ply\nformat binary_little_endian 1.0\nelement vertex 1\n${kXyz}property list uint double l\n` +
			`end_header\n${"\0".repeat(12)}\xff\xff\xff\xff`,
		/the file ends after 0 of the 1/,
	],
	[
		"a list of fewer than none",
		"a.ply",
		`ply\nformat binary_little_endian 1.0\nelement vertex 1\n${kXyz}property list char int l\n` +
			`end_header\n${"\0".repeat(12)}\xff`,
		/'vertex' 0 has a negative count of 'l'/,
	],
];
for (const [what, name, content, sentence] of kRefused)
	test(`Refused: ${what}`, () => {
		const file = typeof content === "string" ? Buffer.from(content, "latin1") : content;
		const found = refusal(name, file);
		assertSentence(found, what);
		assert.match(found, sentence);
	});
