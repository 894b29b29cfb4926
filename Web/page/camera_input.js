// Mouse, touch and keys that move the camera.

const kRadiansPerPixel = 0.006;
const kZoomPerWheelPixel = 0.0012;
const kTurnPerKey = 0.08; // radians
const kPanPerKey = 0.04; // picture heights
const kZoomPerKey = 0.9;

export class CameraInput {
	/**
	 * @param element The picture: pointers and the wheel count on it, and keys while it has the focus.
	 * @param camera What they move.
	 * @param onMove Is called after each move.
	 */
	constructor(element, camera, onMove) {
		this.element = element;
		this.camera = camera;
		this.onMove = onMove;
		this.pointers = new Map();
		element.addEventListener("pointerdown", (event) => this.#pointerDown(event));
		element.addEventListener("pointermove", (event) => this.#pointerMove(event));
		for (const name of ["pointerup", "pointercancel", "lostpointercapture"])
			element.addEventListener(name, (event) => this.pointers.delete(event.pointerId));
		element.addEventListener("wheel", (event) => this.#wheel(event), { passive: false });
		element.addEventListener("keydown", (event) => this.#keyDown(event));
		element.addEventListener("contextmenu", (event) => event.preventDefault()); // the right button pans
	}

	#pointerDown(event) {
		this.element.setPointerCapture(event.pointerId);
		this.pointers.set(event.pointerId, { x: event.clientX, y: event.clientY });
	}

	#pointerMove(event) {
		const pointer = this.pointers.get(event.pointerId);
		if (pointer === undefined) return;
		const before = this.#fingers();
		const dx = event.clientX - pointer.x;
		const dy = event.clientY - pointer.y;
		pointer.x = event.clientX;
		pointer.y = event.clientY;

		const height = this.element.clientHeight;
		if (before !== null) {
			const after = this.#fingers();
			this.camera.zoom(before.distance / Math.max(after.distance, 1));
			this.camera.pan((before.x - after.x) / height, (after.y - before.y) / height);
		} else if (event.shiftKey || event.buttons !== 1) {
			this.camera.pan(-dx / height, dy / height);
		} else {
			this.camera.turn(-dx * kRadiansPerPixel, dy * kRadiansPerPixel);
		}
		this.onMove();
	}

	// The middle of the first two fingers and how far they are apart; null where there is one.
	#fingers() {
		if (this.pointers.size < 2) return null;
		const [a, b] = this.pointers.values();
		return { x: (a.x + b.x) / 2, y: (a.y + b.y) / 2, distance: Math.hypot(a.x - b.x, a.y - b.y) };
	}

	#wheel(event) {
		event.preventDefault();
		const pixels = event.deltaY * (event.deltaMode === WheelEvent.DOM_DELTA_LINE ? 30 : 1);
		this.camera.zoom(Math.exp(pixels * kZoomPerWheelPixel));
		this.onMove();
	}

	#keyDown(event) {
		if (event.ctrlKey || event.metaKey || event.altKey) return;
		const { camera } = this;
		const arrows = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1] };
		if (event.key in arrows) {
			const [right, up] = arrows[event.key];
			if (event.shiftKey) camera.pan(right * kPanPerKey, up * kPanPerKey);
			else camera.turn(right * kTurnPerKey, up * kTurnPerKey);
		} else if (event.key === "+" || event.key === "=") {
			camera.zoom(kZoomPerKey);
		} else if (event.key === "-") {
			camera.zoom(1 / kZoomPerKey);
		} else if (event.key === "Home") {
			camera.reset();
		} else {
			return;
		}
		event.preventDefault();
		this.onMove();
	}
}
