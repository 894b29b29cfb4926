// The loop of frames. While a frame is drawn, the worker sorts the next one; what is drawn is always an order and the
// camera that it was made for. At rest nothing is sorted or drawn.

import { placeOutlier } from "./cloud.js";
import { WorkerCalls } from "./worker_calls.js";

const kTurnPerSecond = 0.25; // radians
const kLongestStep = 0.1; // seconds: on slow machines the cloud turns slower, not in leaps
const kMeasurePause = 500; // milliseconds between two measurements of orders
const kDensest = 2; // pixels drawn per pixel of the page

export class FrameLoop {
	constructor(renderer, camera, table, onFailure) {
		this.renderer = renderer;
		this.camera = camera;
		this.table = table;
		this.onFailure = onFailure;
		this.sorter = new WorkerCalls(new URL("sort_worker.js", import.meta.url));
		this.figures = new WorkerCalls(new URL("figures_worker.js", import.meta.url));

		this.by = "depth";
		this.isTurning = false;
		this.divider = 0.5;
		this.cloud = null;
		this.outlier = null; // a position

		this.cloudNumber = 0; // what was sorted for another cloud is dropped
		this.freeIndices = [];
		this.isChanged = false; // since the last sort was asked for
		this.isSorting = false;
		this.isDrawn = true; // the latest order, with the divider where it is
		this.sorted = null; // an order that is not drawn yet
		this.shown = null; // the order that is on the screen
		this.isMeasuring = false;
		this.lastMeasured = 0;
		this.lastFrame = 0;
		this.frameTimes = [];
	}

	/** Sorts and draws this cloud from now on. Returns false if another cloud came in between. */
	async setCloud(cloud) {
		++this.cloudNumber;
		this.cloud = null;
		this.freeIndices = [];
		this.sorted = null;
		this.shown = null;
		this.table.clear();
		this.renderer.setCloud(cloud);
		const cloudNumber = this.cloudNumber;
		const [module] = await Promise.all([
			this.sorter.call("setCloud", cloud.positions),
			this.figures.call("setCloud", cloud.positions),
		]);
		if (cloudNumber !== this.cloudNumber) return false;
		this.module = module;
		this.cloud = cloud;
		this.changed();
		return true;
	}

	/** Puts the splat behind the cloud's last one somewhere; null: it is not drawn. */
	setOutlier(position) {
		this.outlier = position;
		this.changed();
	}

	/** Where the exact order ends and that of 16 bits begins, from 0 to 1. At an end, only one of them is sorted. */
	setDivider(divider) {
		this.divider = divider;
		this.isDrawn = false;
		if (!this.#isSortedFor(this.shown)) this.changed();
	}

	/** Something that the order depends on has changed. */
	changed() {
		this.isChanged = true;
		document.documentElement.dataset.state = "busy";
	}

	/** Goes on from frame to frame, until something fails. */
	run() {
		requestAnimationFrame((time) => {
			this.#frame(time);
			this.run();
		});
	}

	#frame(time) {
		const seconds = Math.min((time - this.lastFrame) / 1000, kLongestStep);
		this.lastFrame = time;
		if (this.isTurning) {
			this.camera.turn(kTurnPerSecond * seconds, 0);
			this.changed();
		}
		if (this.sorted !== null) this.#takeSorted();
		if (!this.isDrawn && this.#isSortedFor(this.shown)) {
			this.renderer.draw(this.shown.view, this.divider);
			this.isDrawn = true;
			this.frameTimes.push(time);
		}
		if (this.isChanged && !this.isSorting && this.cloud !== null) this.#sort().catch(this.onFailure);
		this.#measure(time);
		this.#showTimes(time);
		this.#showState();
	}

	// Whether a frame has the orders that the divider shows.
	#isSortedFor(frame) {
		return (
			frame !== null &&
			(this.divider === 0 || frame.exact !== null) &&
			(this.divider === 1 || frame.sixteen !== null)
		);
	}

	async #sort() {
		this.isChanged = false;
		this.isSorting = true;
		const { clientWidth, clientHeight } = this.renderer.canvas;
		const density = Math.min(devicePixelRatio, kDensest);
		const view = this.camera.view(
			Math.max(Math.round(clientWidth * density), 1),
			Math.max(Math.round(clientHeight * density), 1)
		);
		const { cloudNumber, by, outlier } = this;
		const count = this.cloud.count + (outlier === null ? 0 : 1);
		const exact = this.divider > 0 ? this.#takeIndices() : null;
		const sixteen = this.divider < 1 ? this.#takeIndices() : null;
		const buffers = [exact, sixteen].filter((indices) => indices !== null).map((indices) => indices.buffer);
		const camera = { eye: view.eye, forward: view.forward };
		const orders = await this.sorter.call("sort", { count, outlier, camera, by, exact, sixteen }, buffers);
		this.isSorting = false;
		if (cloudNumber === this.cloudNumber)
			this.sorted = { view, camera, by, count, outlier, ...orders, isMeasured: false };
	}

	#takeIndices() {
		return this.freeIndices.pop() ?? new Uint32Array(this.cloud.count + 1);
	}

	#takeSorted() {
		if (this.sorted.outlier !== null) {
			placeOutlier(this.cloud, this.sorted.outlier);
			this.renderer.updateSplat(this.cloud, this.cloud.count);
		}
		for (const name of ["exact", "sixteen"]) {
			if (this.shown !== null && this.shown[name] !== null) this.freeIndices.push(this.shown[name]);
			if (this.sorted[name] === null) continue;
			this.renderer.setOrder(name, this.sorted[name], this.sorted.count);
			this.table.addTime(name, this.sorted[`${name}Time`]);
		}
		this.shown = this.sorted;
		this.sorted = null;
		this.isDrawn = false;
	}

	// Copies the orders on the screen to the worker that measures, every now and then.
	#measure(time) {
		const { shown } = this;
		if (shown === null || shown.isMeasured || this.isMeasuring || time - this.lastMeasured < kMeasurePause) return;
		shown.isMeasured = true;
		this.isMeasuring = true;
		this.lastMeasured = time;
		const { count, outlier, camera, by, exact, sixteen } = shown;
		const { cloudNumber } = this;
		const orders = [exact, sixteen].map((order) => order && order.slice(0, count));
		this.figures
			.call(
				"measure",
				{ count, outlier, camera, by, orders },
				orders.filter(Boolean).map((order) => order.buffer)
			)
			.then((figures) => {
				this.isMeasuring = false;
				if (cloudNumber !== this.cloudNumber) return;
				this.table.showFigures("exact", figures[0]);
				this.table.showFigures("sixteen", figures[1]);
			})
			.catch(this.onFailure);
	}

	#showTimes(time) {
		while (this.frameTimes.length > 0 && this.frameTimes[0] <= time - 1000) this.frameTimes.shift();
		this.table.showTimes(this.frameTimes.length);
	}

	// For styles and tests: "busy" until all that was changed is drawn, "drawn" until it is measured, then "settled".
	#showState() {
		const isDrawn =
			!this.isChanged && !this.isSorting && this.sorted === null && this.isDrawn && this.shown !== null;
		const isMeasured = isDrawn && this.shown.isMeasured && !this.isMeasuring;
		const state = isMeasured ? "settled" : isDrawn ? "drawn" : "busy";
		if (document.documentElement.dataset.state !== state) document.documentElement.dataset.state = state;
	}
}
