// What is shown and how: files and controls, and the frame loop that they change.

import { CameraInput } from "./camera_input.js";
import { CloudError, grouped, kToOutlier } from "./cloud.js";
import { Divider } from "./divider.js";
import { RefusedCall, WorkerCalls } from "./worker_calls.js";

const kBundledName = "Bundled cloud";

const $ = (selector) => document.querySelector(selector);
const canvas = $("#picture");

function chosen(name) {
	return $(`input[name="${name}"]:checked`).value;
}

/** Says what cannot be done. */
export function refuse(sentence) {
	$("#refusal p").textContent = sentence;
	$("#refusal").hidden = false;
}

export class Page {
	/** onFailure receives errors that are no fault of a file's. */
	constructor(loop, onFailure) {
		this.loop = loop;
		this.onFailure = onFailure;
		this.clouds = new WorkerCalls(new URL("cloud_worker.js", import.meta.url));
		this.loading = 0; // how many clouds have been asked for
		this.divider = new Divider($("#divider"), () => this.#applyShown());
	}

	/** Shows a cloud in place of the one before, or, if it is refused, a sentence. */
	async show(name, makeCloud) {
		const loading = ++this.loading;
		$("#status").textContent = name === kBundledName ? "Making the bundled cloud …" : `Reading ${name} …`;
		$("#refusal").hidden = true;
		document.documentElement.dataset.state = "busy";
		try {
			const cloud = await makeCloud();
			if (cloud.count + 1 > this.loop.renderer.maxSplats)
				throw new CloudError(
					`${name}: it has ${grouped(cloud.count)} splats, and this device draws ` +
						`${grouped(this.loop.renderer.maxSplats - 1)} at most.`
				);
			if (!(await this.loop.setCloud(cloud))) return;
			this.loop.camera.reset();
			$("#scene").textContent = `${name}, ${grouped(cloud.count)} splats`;
			this.#showModule();
		} catch (error) {
			if (!(error instanceof CloudError || error instanceof RefusedCall)) throw error;
			refuse(error.message);
			this.loop.changed();
		}
		if (loading === this.loading) $("#status").textContent = "";
	}

	showBundled() {
		return this.show(kBundledName, () => this.clouds.call("generate"));
	}

	connectControls() {
		const { loop } = this;
		const onMove = () => {
			this.#setTurning(false);
			loop.changed();
		};
		new CameraInput(canvas, loop.camera, onMove);
		this.#applyOutlier();
		new ResizeObserver(() => loop.changed()).observe(canvas);
		this.#setTurning(!matchMedia("(prefers-reduced-motion: reduce)").matches);

		$("#shown").addEventListener("change", () => this.#applyShown());
		$("#outlier").addEventListener("change", () => this.#applyOutlier());
		$("#key").addEventListener("change", () => {
			loop.by = chosen("key");
			loop.changed();
		});
		$("#turning").addEventListener("click", () => this.#setTurning(!loop.isTurning));
		$("#upside-down").addEventListener("click", () => this.#turnUpsideDown());
		$("#bundled").addEventListener("click", () => this.showBundled().catch(this.onFailure));
		$("#file").addEventListener("change", ({ target }) => {
			this.#open(target.files[0]);
			target.value = ""; // the same file can be chosen again
		});
		$("#refusal button").addEventListener("click", () => ($("#refusal").hidden = true));
		$("#controls").addEventListener("submit", (event) => event.preventDefault());
		document.addEventListener("keydown", (event) => this.#keyDown(event));
		this.#connectDrop();
		canvas.addEventListener("webglcontextlost", () =>
			refuse("The browser has taken the graphics memory away; load the page again.")
		);
	}

	#connectDrop() {
		const hint = $("#drop-here");
		const show = (isShown) => (hint.hidden = !isShown);
		addEventListener("dragover", (event) => {
			event.preventDefault();
			show(true);
		});
		addEventListener("dragleave", (event) => show(event.relatedTarget !== null));
		addEventListener("drop", (event) => {
			event.preventDefault();
			show(false);
			this.#open(event.dataTransfer.files[0]);
		});
	}

	#open(file) {
		if (file === undefined) refuse("What was dropped is no file.");
		else this.show(file.name, () => this.clouds.call("read", file)).catch(this.onFailure);
	}

	#keyDown(event) {
		if (event.ctrlKey || event.metaKey || event.altKey || event.repeat) return;
		const actions = {
			1: () => $('input[value="exact"]').click(),
			2: () => $('input[value="both"]').click(),
			3: () => $('input[value="sixteen"]').click(),
			t: () => $("#turning").click(),
			u: () => $("#upside-down").click(),
			o: () => $("#file").click(),
		};
		actions[event.key.toLowerCase()]?.();
	}

	#setTurning(isTurning) {
		this.loop.isTurning = isTurning;
		$("#turning").setAttribute("aria-pressed", String(isTurning));
	}

	#turnUpsideDown() {
		const { camera } = this.loop;
		camera.up = -camera.up;
		$("#upside-down").setAttribute("aria-pressed", String(camera.up < 0));
		this.loop.changed();
	}

	#applyShown() {
		const shown = chosen("shown");
		const isBoth = shown === "both";
		$("#divider").hidden = !isBoth;
		$(".side.exact").hidden = shown === "sixteen";
		$(".side.sixteen").hidden = shown === "exact";
		this.loop.setDivider(isBoth ? this.divider.share : shown === "exact" ? 1 : 0);
	}

	#applyOutlier() {
		const radii = Number(chosen("outlier"));
		this.loop.setOutlier(radii > 0 ? kToOutlier.map((x) => x * radii) : null);
	}

	#showModule() {
		const { version, simd, threads } = this.loop.module;
		this.loop.table.showThreads(threads);
		$("#build").textContent = `Library ${version}, WebAssembly ${simd ? "with" : "without"} SIMD.`;
	}
}
