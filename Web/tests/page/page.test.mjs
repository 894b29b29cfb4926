// The page in a real browser, without a window: what it shows, what it refuses, and how it is used.

import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { Browser, differingShare } from "./browser.mjs";
import { plyFile, splat, splatFile, trainedVertices } from "./files.mjs";
import { nativeOrder } from "./native.mjs";

const browser = { current: null };
before(async () => (browser.current = await Browser.start()));
after(() => browser.current?.close());

// Tests that share a page, one after the other: to start one takes seconds without a graphics card.
function onPage(name, options, tests) {
	test(name, (group) =>
		browser.current.withPage(options, async (open) => {
			for (const [what, runTest] of Object.entries(tests)) await group.test(what, () => runTest(open));
		})
	);
}

// Eight splats in a row, one clearly behind the other: any order that is one draws them alike.
const kColours = [
	[255, 0, 0],
	[0, 255, 0],
	[0, 0, 255],
	[255, 255, 0],
	[0, 255, 255],
	[255, 0, 255],
	[255, 255, 255],
	[90, 90, 90],
];
const kRow = kColours.map((colour, i) =>
	splat({
		position: [0.3 * Math.sin(i), 0.2 * Math.cos(2 * i), 0.3 * i],
		scales: [0.3, 0.15, 0.1],
		colour: [...colour, 200],
	})
);
const kRowFile = splatFile(kRow);

// Sorts the bundled cloud by the page's worker, and compares the order with that of the library on this machine.
async function isOrderOfLibrary(open) {
	const eye = [0.3, 1.5, 2];
	const base64 = await open.page.evaluate(async (eye) => {
		const { WorkerCalls } = await import("./worker_calls.js");
		const clouds = new WorkerCalls(new URL("cloud_worker.js", location));
		const sorter = new WorkerCalls(new URL("sort_worker.js", location));
		const { count, positions } = await clouds.call("generate");
		await sorter.call("setCloud", positions);
		const camera = { eye, forward: [-0.12, -0.588, -0.8] };
		const exact = new Uint32Array(count);
		const sorted = await sorter.call(
			"sort",
			{ count, outlier: null, camera, by: "distance", exact, sixteen: null },
			[exact.buffer]
		);
		const texts = [positions.subarray(0, 3 * count), sorted.exact].map(
			(array) =>
				new Promise((resolve) => {
					const reader = new FileReader();
					reader.onload = () => resolve(reader.result.replace(/^.*,/, ""));
					reader.readAsDataURL(new Blob([array]));
				})
		);
		return Promise.all(texts);
	}, eye);
	const [positions, exact] = base64.map((text) => new Uint8Array(Buffer.from(text, "base64")).buffer);
	assert.ok(exact.byteLength > 400000);
	assert.deepEqual(new Uint32Array(exact), nativeOrder("position", new Float32Array(positions), eye));
}

onPage(
	"With the bundled cloud",
	{},
	{
		async "The bundled cloud with one splat far away: exact order stays, 16 bits break"(open) {
			const { page } = open;
			await open.settled();
			assert.match(await open.text("#scene"), /^Bundled cloud, 1\d\d,\d\d\d splats$/);
			assert.match(await open.text("#build"), /^Library \d+\.\d+\.\d+, WebAssembly with SIMD\.$/);
			assert.equal(await open.text("#status"), "");
			assert.equal(await open.figure("exact threads"), "1", "the page is not isolated");

			// By the figures.
			for (const name of ["pairs", "backtrack", "middleBacktrack"])
				assert.equal(await open.figure(`exact ${name}`), "0");
			assert.match(await open.figure("sixteen pairs"), /^[\d.]+ (million|billion)[\d.]+ % of all$/);
			assert.ok(parseFloat(await open.figure("sixteen middleBacktrack")) > 10);
			for (const name of ["exact time", "sixteen time"]) assert.ok(parseFloat(await open.figure(name)) > 0);

			// By the picture: many colours, and not one side like the other.
			const both = await open.picture();
			const colours = new Set();
			for (let y = 0; y < both.height; y += 3)
				for (let x = 0; x < both.width; x += 3) colours.add(String(both.at(x, y)));
			assert.ok(colours.size > 1000, `${colours.size} colours`);
			await page.keyboard.press("1");
			await open.settled();
			const exact = await open.picture();
			await page.keyboard.press("3");
			await open.settled();
			const sixteen = await open.picture();
			assert.ok(differingShare(exact, sixteen) > 0.05, `${differingShare(exact, sixteen)} of the pixels differ`);
			const middle = both.width / 2;
			assert.equal(differingShare(both, exact, 0, Math.floor(middle)), 0, "left is the exact order");
			assert.equal(differingShare(both, sixteen, Math.ceil(middle)), 0, "right is that of 16 bits");

			// The outlier is out of the picture: without it nothing changes in the exact order.
			await open.choose("outlier", "0");
			const mended = await open.picture();
			assert.ok(
				differingShare(mended, exact) < differingShare(sixteen, exact) / 4,
				"without the outlier, 16 bits do better"
			);
			await open.choose("shown", "exact");
			assert.equal(differingShare(await open.picture(), exact), 0);
		},

		async "The worker's order is that of the library on this machine"(open) {
			await isOrderOfLibrary(open);
		},
	}
);

onPage(
	"On a page that is isolated from other origins",
	{ isIsolated: true },
	{
		async "Threads sort together, in exact order, by both keys"(open) {
			await open.settled();
			const [isIsolated, coreCount] = await open.page.evaluate(() => [
				crossOriginIsolated,
				navigator.hardwareConcurrency,
			]);
			assert.ok(isIsolated);
			assert.equal(await open.figure("exact threads"), String(Math.min(coreCount, 4)));
			for (const key of ["distance", "depth"]) {
				await open.choose("key", key);
				for (const name of ["pairs", "backtrack", "middleBacktrack"])
					assert.equal(await open.figure(`exact ${name}`), "0");
				assert.match(await open.figure("sixteen pairs"), /^[\d.]+ (million|billion)[\d.]+ % of all$/);
			}
			await isOrderOfLibrary(open);
		},

		async "On the page's main thread, threads write the bytes of one"(open) {
			const counts = await open.page.evaluate(async () => {
				const { load } = await import("./vexmoor/vexmoor.js");
				const capacity = 150001;
				const one = (await load()).createPointSorter({ capacity });
				const { positions } = one;
				for (let i = 0; i < positions.length; ++i) positions[i] = Math.sin(i * i) * 50;
				const threadCounts = [];
				for (const threads of [1, 2, 3, 4]) {
					const team = await load({ threads });
					threadCounts.push(team.threads);
					const sorter = team.createPointSorter({ capacity });
					sorter.positions.set(positions);
					for (const count of [0, 109, 32767, 32768, 32769, 100000, capacity]) {
						const camera = [count, 3, -count];
						const expected = one.sort(count, camera);
						if (sorter.sort(count, camera).some((index, i) => index !== expected[i]))
							throw new Error(`${count} with ${threads} threads`);
					}
					team.endThreads();
				}
				return threadCounts;
			});
			assert.deepEqual(counts, [1, 2, 3, 4]);
		},
	}
);

onPage(
	"With few splats",
	{},
	{
		async "Dropped files are shown, and both orders draw few splats alike"(open) {
			await open.show("row.splat", kRowFile);
			assert.equal(await open.text("#scene"), "row.splat, 8 splats");
			await open.choose("outlier", "0");
			assert.equal(await open.figure("sixteen pairs"), "0");
			await open.choose("shown", "exact");
			const exact = await open.picture();
			await open.choose("shown", "sixteen");
			assert.equal(differingShare(await open.picture(), exact), 0);

			// The same splats from a trained file, through the button, and by the other key.
			await open.page.setInputFiles("#file", {
				name: "row.ply",
				mimeType: "",
				buffer: plyFile("binary_little_endian", [trainedVertices(kRow)]),
			});
			await open.page.waitForFunction(() => document.querySelector("#scene").textContent === "row.ply, 8 splats");
			await open.settled();
			assert.ok(differingShare(await open.picture(), exact) < 0.5);
			await open.choose("key", "distance");
			assert.equal(await open.figure("sixteen pairs"), "0");
		},

		async "A splat is drawn where it lies, as large and as turned as it is"(open) {
			const needle = { scales: [0.6, 0.03, 0.03], colour: [255, 0, 0, 255] };
			const far = (_, i) =>
				splat({ position: [Math.cos(i), Math.sin(i), 0], scales: [0.001, 0.001, 0.001], colour: [0, 0, 0, 0] });
			const corners = Array.from({ length: 12 }, far); // not seen: they keep the needle's place and size
			const measure = async (name, rotation) => {
				await open.show(name, splatFile([splat({ ...needle, rotation }), ...corners]));
				const picture = await open.picture();
				const extent = (at) => {
					const found = [...Array(Math.max(picture.width, picture.height)).keys()].filter(
						(i) => at(i)?.[0] > 120
					);
					return found.length;
				};
				const [x, y] = [picture.width >> 1, picture.height >> 1];
				return {
					wide: extent((i) => (i < picture.width ? picture.at(i, y) : null)),
					high: extent((i) => (i < picture.height ? picture.at(x, i) : null)),
					middle: picture.at(x, y),
				};
			};
			await open.choose("outlier", "0");
			await open.choose("shown", "exact");
			const lying = await measure("lying.splat", [1, 0, 0, 0]);
			// a quarter turn about z
			const standing = await measure("standing.splat", [Math.SQRT1_2, 0, 0, Math.SQRT1_2]);
			assert.ok(lying.middle[0] > 240 && lying.middle[1] < 20, `${lying.middle}`);
			assert.ok(lying.wide > 5 * lying.high, `lying: ${lying.wide} by ${lying.high} pixels`);
			assert.ok(standing.high > 5 * standing.wide, `standing: ${standing.wide} by ${standing.high} pixels`);
		},

		async "Damaged files are refused with a sentence, and the cloud stays"(open) {
			const { page } = open;
			await open.show("row.splat", kRowFile);
			const before = await open.picture();
			const refused = {
				"cut.splat": [
					kRowFile.subarray(0, 70),
					/^cut\.splat: byte 64: a splat takes 32 bytes, and after 2 of them there are 6 left\.$/,
				],
				"words.ply": [Buffer.from("no cloud"), /^words\.ply: byte 0: a PLY file starts with a line 'ply'/],
				"empty.splat": [Buffer.alloc(0), /^empty\.splat: it is empty\.$/],
			};
			for (const [name, [content, sentence]] of Object.entries(refused)) {
				await open.drop(name, content);
				await page.waitForFunction(
					(name) => document.querySelector("#refusal p").textContent.startsWith(name),
					name
				);
				assert.ok(await page.isVisible("#refusal"));
				assert.match(await open.text("#refusal p"), sentence);
				assert.equal(await open.text("#scene"), "row.splat, 8 splats");
				await page.click("#refusal button");
				await page.waitForSelector("#refusal", { state: "hidden" });
			}
			await open.settled();
			assert.equal(differingShare(await open.picture(), before), 0);
		},

		async "Mouse and keys turn, move, zoom and divide"(open) {
			const { page } = open;
			await open.show("row.splat", kRowFile);
			await open.choose("shown", "both");
			const { x, y, width, height } = await page.locator("#picture").boundingBox();
			const drag = async (button, key) => {
				if (key) await page.keyboard.down(key);
				await page.mouse.move(x + 0.25 * width, y + 0.5 * height);
				await page.mouse.down({ button });
				await page.mouse.move(x + 0.35 * width, y + 0.6 * height, { steps: 3 });
				await page.mouse.up({ button });
				if (key) await page.keyboard.up(key);
			};
			const start = await open.picture();
			let picture = await open.pictureAfter(start, "dragging", () => drag("left"));
			picture = await open.pictureAfter(picture, "dragging with the right button", () => drag("right"));
			picture = await open.pictureAfter(picture, "dragging with Shift", () => drag("left", "Shift"));
			picture = await open.pictureAfter(picture, "the wheel", () => page.mouse.wheel(0, 200));

			await page.focus("#picture");
			for (const key of ["ArrowLeft", "ArrowUp", "Shift+ArrowRight", "Shift+ArrowDown", "+", "-"])
				picture = await open.pictureAfter(picture, key, () => page.keyboard.press(key));
			picture = await open.pictureAfter(picture, "U", () => page.keyboard.press("u"));
			await open.pictureAfter(picture, "U again", () => page.keyboard.press("u"));
			await page.keyboard.press("Home");
			await open.settled();
			assert.equal(differingShare(await open.picture(), start), 0, "Home goes back");

			const divider = page.locator("#divider");
			const share = async () => Number(await divider.getAttribute("aria-valuenow"));
			await divider.focus();
			await page.keyboard.press("ArrowRight");
			assert.equal(await share(), 52);
			await page.keyboard.press("Home");
			assert.equal(await share(), 0);
			await page.keyboard.press("End");
			assert.equal(await share(), 100);
			const grip = await divider.boundingBox();
			await page.mouse.move(grip.x + 20, y + 0.3 * height);
			await page.mouse.down();
			await page.mouse.move(x + 0.25 * width, y + 0.3 * height, { steps: 3 });
			await page.mouse.up();
			assert.equal(await share(), 25);
			for (const [key, state] of [
				["1", "hidden"],
				["2", "visible"],
				["3", "hidden"],
			]) {
				await page.keyboard.press(key);
				await page.waitForSelector("#divider", { state });
			}
		},
	}
);

const kPhone = { viewport: { width: 390, height: 844 }, isMobile: true, hasTouch: true, deviceScaleFactor: 1 };

onPage("On a phone", kPhone, {
	async "Everything has its place, and fingers move the cloud"(open) {
		const { page, context } = open;
		await open.show("row.splat", kRowFile);
		const layout = await page.evaluate(() => {
			const box = (element) => {
				const { left, right, top, bottom } = element.getBoundingClientRect();
				return { left, right, top, bottom };
			};
			const words = [
				...document.querySelectorAll(
					"#panel :is(h1, p, legend, fieldset span, th, td, button, .button, summary)"
				),
			];
			return {
				pageWidth: document.documentElement.scrollWidth,
				sides: [...document.querySelectorAll(".side")].map(box),
				picture: box(document.querySelector("#picture")),
				wide: words
					.filter((element) => box(element).left < 0 || box(element).right > innerWidth)
					.map((element) => element.textContent),
				cut: words
					.filter((element) => element.scrollWidth > element.clientWidth + 1 && element.clientWidth > 0)
					.map((element) => element.textContent),
				small: words
					.filter((element) => parseFloat(getComputedStyle(element).fontSize) < 12)
					.map((element) => element.textContent),
				low: [...document.querySelectorAll("#panel button, #panel .button, #panel fieldset label")]
					.filter((element) => element.offsetHeight < 36)
					.map((element) => element.textContent),
			};
		});
		assert.equal(layout.pageWidth, 390);
		assert.deepEqual([layout.wide, layout.cut, layout.small, layout.low], [[], [], [], []]);
		assert.ok(layout.sides[0].right < layout.sides[1].left);
		assert.ok(layout.picture.bottom > 300 && layout.picture.bottom < 500);

		const touch = await context.newCDPSession(page);
		const send = (type, points) =>
			touch.send("Input.dispatchTouchEvent", { type, touchPoints: points.map(([x, y], id) => ({ x, y, id })) });
		const swipe = async (...steps) => {
			await send("touchStart", steps[0]);
			for (const points of steps.slice(1)) await send("touchMove", points);
			// lifted in motion, fingers fling, and the browser takes the next tap as a stop
			await page.waitForTimeout(150);
			await send("touchMove", steps.at(-1));
			await send("touchEnd", []);
		};
		let picture = await open.picture();
		picture = await open.pictureAfter(picture, "one finger", () => swipe([[100, 200]], [[130, 210]], [[160, 230]]));
		picture = await open.pictureAfter(picture, "two fingers", () =>
			swipe(
				[
					[80, 200],
					[140, 200],
				],
				[
					[70, 200],
					[150, 200],
				],
				[
					[50, 200],
					[170, 200],
				]
			)
		);
		await swipe([[195, 100]], [[240, 100]], [[290, 100]]);
		const share = Number(await page.getAttribute("#divider", "aria-valuenow"));
		assert.ok(Math.abs(share - 74) <= 1, `the divider is at ${share}`);
		await page.tap('label:has(input[value="sixteen"])');
		await page.waitForSelector("#divider", { state: "hidden" });
	},
});

onPage(
	"Where motion is welcome",
	{ reducedMotion: "no-preference" },
	{
		async "It turns by itself, in exact order in every frame that is measured"(open) {
			const { page } = open;
			await open.drop("row.splat", kRowFile);
			await page.waitForFunction(() => document.querySelector("#scene").textContent.startsWith("row"));
			await page.evaluate(() => {
				globalThis.seen = { exact: [], sixteen: [] };
				for (const [name, texts] of Object.entries(seen)) {
					const cell = document.querySelector(`[data-figure="${name} pairs"]`);
					new MutationObserver(() => texts.push(cell.textContent)).observe(cell, { childList: true });
				}
			});
			const start = await open.picture();
			for (const radii of ["100", "100000", "0", "100000"]) {
				await page.click(`label:has(input[name="outlier"][value="${radii}"])`);
				await page.click(`label:has(input[name="key"][value="${radii === "0" ? "distance" : "depth"}"])`);
				const count = await page.evaluate(() => seen.exact.length);
				await page.waitForFunction((count) => seen.exact.length > count + 1, count);
			}
			const seen = await page.evaluate(() => seen);
			assert.deepEqual(new Set(seen.exact), new Set(["0"]));
			assert.ok(new Set(seen.sixteen).size > 1, "16 bits are not always right");
			assert.ok(parseInt(await open.figure("frames")) > 0);

			await page.click("#turning");
			await open.settled();
			await page.waitForFunction(
				() => document.querySelector('[data-figure="frames"]').textContent === "at rest"
			);
			assert.ok(differingShare(await open.picture(), start) > 0);
		},
	}
);
