// The divider between the two orders: dragged, or moved by keys.

const kPerKey = 0.02; // of the width

export class Divider {
	/** @param element Lies over the picture, which is its parent. */
	constructor(element, onMove) {
		this.element = element;
		this.onMove = onMove;
		this.share = 0.5; // of the picture that lies left of the divider
		element.addEventListener("pointerdown", (event) => {
			element.setPointerCapture(event.pointerId);
			element.focus({ focusVisible: false });
			event.preventDefault();
		});
		element.addEventListener("pointermove", (event) => {
			if (!element.hasPointerCapture(event.pointerId)) return;
			const { left, width } = element.parentElement.getBoundingClientRect();
			this.#moveTo((event.clientX - left) / width);
		});
		element.addEventListener("keydown", (event) => {
			const targets = {
				ArrowLeft: this.share - kPerKey,
				ArrowRight: this.share + kPerKey,
				Home: 0,
				End: 1,
			};
			if (!(event.key in targets)) return;
			event.preventDefault();
			this.#moveTo(targets[event.key]);
		});
	}

	#moveTo(share) {
		this.share = Math.min(Math.max(share, 0), 1);
		this.element.style.left = `${100 * this.share}%`;
		this.element.setAttribute("aria-valuenow", String(Math.round(100 * this.share)));
		this.onMove();
	}
}
