// The table of figures: what was measured, as text.

const kTimesKept = 15;

export class FiguresTable {
	constructor(table) {
		this.cells = Object.fromEntries(
			[...table.querySelectorAll("[data-figure]")].map((cell) => [cell.dataset.figure, cell])
		);
		this.clear();
	}

	/** Forgets a cloud's times. */
	clear() {
		this.times = { exact: [], sixteen: [] };
	}

	/** The exact order is sorted by so many threads together. */
	showThreads(count) {
		this.cells["exact threads"].textContent = String(count);
	}

	/** An order's sort took some milliseconds. */
	addTime(name, milliseconds) {
		this.times[name].push(milliseconds);
		if (this.times[name].length > kTimesKept) this.times[name].shift();
	}

	/** Shows the median of the latest times, and how many frames there were in the last second; 0 at rest. */
	showTimes(framesPerSecond) {
		for (const [name, times] of Object.entries(this.times)) {
			const median = [...times].sort((a, b) => a - b)[times.length >> 1];
			write(this.cells[`${name} time`], median === undefined ? "" : median.toFixed(2));
		}
		write(this.cells.frames, framesPerSecond > 0 ? String(framesPerSecond) : "at rest");
	}

	/** Shows an order's figures, or that it is not sorted. */
	showFigures(name, figures) {
		const cell = (figure) => this.cells[`${name} ${figure}`];
		if (figures === null) {
			for (const figure of ["backtrack", "middleBacktrack", "pairs"]) cell(figure).textContent = "";
			this.times[name] = [];
			return;
		}
		const { worstBacktrack, range, middleRange, pairsOutOfOrder, pairs } = figures;
		cell("backtrack").textContent = percentage(worstBacktrack, range);
		cell("middleBacktrack").textContent = percentage(worstBacktrack, middleRange);
		const share = document.createElement("small");
		share.textContent = pairsOutOfOrder > 0 ? `${percentage(pairsOutOfOrder, pairs)} of all` : "";
		cell("pairs").replaceChildren(counted(pairsOutOfOrder), share);
	}
}

// What is written anew is laid out anew, even if it says the same: at rest nothing is.
function write(cell, text) {
	if (cell.textContent !== text) cell.textContent = text;
}

function counted(number) {
	if (number < 1e6) return number.toLocaleString("en-US");
	const [unit, name] = number < 1e9 ? [1e6, "million"] : [1e9, "billion"];
	return `${Number((number / unit).toPrecision(3)).toLocaleString("en-US")} ${name}`;
}

function percentage(part, whole) {
	if (part === 0) return "0";
	const percent = (100 * part) / whole;
	return `${percent.toLocaleString("en-US", { maximumSignificantDigits: 2 })} %`;
}
