// PLY files: the header, and the vertices of the body in ASCII or either byte order. A file is trusted in nothing: each
// count is held against the bytes that are there before memory is taken for it, and the whole body is walked, so that a
// file that was cut short, or changed on its way, is refused and not drawn in part.

import { CloudError, grouped } from "./cloud.js";

const int = (size, lowest, largest, load) => ({ size, lowest, largest, load, isInteger: true });
const float = (size, load) => ({ size, load, isInteger: false });
const kTypes = {
	int8: int(1, -128, 127, (data, at) => data.getInt8(at)),
	uint8: int(1, 0, 255, (data, at) => data.getUint8(at)),
	int16: int(2, -32768, 32767, (data, at, little) => data.getInt16(at, little)),
	uint16: int(2, 0, 65535, (data, at, little) => data.getUint16(at, little)),
	int32: int(4, -2147483648, 2147483647, (data, at, little) => data.getInt32(at, little)),
	uint32: int(4, 0, 4294967295, (data, at, little) => data.getUint32(at, little)),
	float32: float(4, (data, at, little) => data.getFloat32(at, little)),
	float64: float(8, (data, at, little) => data.getFloat64(at, little)),
};
const kTypesByName = new Map([
	...Object.entries(kTypes),
	...Object.entries({
		char: kTypes.int8,
		uchar: kTypes.uint8,
		short: kTypes.int16,
		ushort: kTypes.uint16,
		int: kTypes.int32,
		uint: kTypes.uint32,
		float: kTypes.float32,
		double: kTypes.float64,
	}),
]);

const kNewline = 0x0a;
const kCarriageReturn = 0x0d;
const kMaxLineLength = 4096; // of a header
const kMaxElements = 100;
const kMaxProperties = 1000; // of an element; splats have 62

/** Whether a file's first letters are those of a PLY file. */
export function startsAsPly(file) {
	return (
		file[0] === 0x70 &&
		file[1] === 0x6c &&
		file[2] === 0x79 &&
		(file[3] === kNewline || file[3] === kCarriageReturn)
	);
}

/** A file whose header has been read and checked. Sentences of its errors start with the place in the file. */
export class PlyFile {
	/** @param {Uint8Array} file */
	constructor(file) {
		this.file = file;
		this.header = new HeaderReader(file).read();
		this.vertices = this.header.elements.find((element) => element.name === "vertex");
		if (this.vertices === undefined)
			fail(atLine(this.header.lineCount), "the header ends without an element 'vertex'");
		checkCounts(this.header, file.length);
	}

	/** Where the vertices' property of that name stands among the others, or -1: there is none, or it is a list. */
	findNumber(name) {
		return this.vertices.properties.findIndex((property) => property.name === name && property.countType === null);
	}

	/** What full light is in a colour of a property's type: the largest value of an integer; 1 for a float. */
	fullScale(property) {
		const { type } = this.vertices.properties[property];
		return type.isInteger ? type.largest : 1;
	}

	/**
	 * Reads the body from end to end. onVertex receives a vertex's values of the named properties, all finite in 32
	 * bits, in an array that is used again, and returns what is wrong with them, or null.
	 */
	readVertices(properties, onVertex) {
		const body =
			this.header.format === "ascii"
				? new AsciiBody(this.file, this.header)
				: new BinaryBody(this.file, this.header);
		const values = new Float64Array(properties.length);
		for (const element of this.header.elements) {
			body.beginElement(element);
			for (let row = 0; row < element.count; ++row) {
				body.nextRow();
				if (element !== this.vertices) continue;
				for (let i = 0; i < properties.length; ++i) {
					values[i] = body.value(properties[i]);
					if (!Number.isFinite(Math.fround(values[i])))
						fail(
							body.where(),
							`vertex ${grouped(row)} has no finite '${element.properties[properties[i]].name}'`
						);
				}
				const complaint = onVertex(values);
				if (complaint !== null) fail(body.where(), `vertex ${grouped(row)} ${complaint}`);
			}
		}
		body.endFile();
	}
}

function fail(where, what) {
	throw new CloudError(`${where}: ${what}.`);
}

function atLine(number) {
	return `line ${grouped(number)}`;
}

function atByte(offset) {
	return `byte ${grouped(offset)}`;
}

// A word of a file inside a sentence: cut, and without letters that do not print.
function quoted(text) {
	const printed = text.replace(/[^ -~]/g, "?");
	return printed.length > 40 ? `'${printed.slice(0, 40)}...'` : `'${printed}'`;
}

function textOf(bytes) {
	let text = "";
	for (const byte of bytes) text += String.fromCharCode(byte);
	return text;
}

function words(line) {
	return line.split(/[ \t\r\v\f]+/).filter((word) => word !== "");
}

class HeaderReader {
	constructor(file) {
		this.file = file;
		this.header = { format: null, elements: [], lineEnd: kNewline, lineCount: 0, size: 0 };
	}

	read() {
		this.readMagic();
		while (this.readLine()) {}
		if (this.header.format === null) this.failHere("the header ends without a 'format'");
		this.checkLastElement();
		return this.header;
	}

	// The first line also shows how lines end: '\n', which a '\r' may precede, or '\r' alone.
	readMagic() {
		if (!startsAsPly(this.file))
			fail(
				atByte(0),
				`a PLY file starts with a line 'ply', this one with ${quoted(textOf(this.file.subarray(0, 16)))}`
			);
		const isReturn = this.file[3] === kCarriageReturn;
		const isFollowed = isReturn && this.file[4] === kNewline;
		this.header.lineEnd = isReturn && !isFollowed ? kCarriageReturn : kNewline;
		this.header.size = isFollowed ? 5 : 4;
		this.header.lineCount = 1;
	}

	// Returns false for the header's last line.
	readLine() {
		++this.header.lineCount;
		const start = this.header.size;
		const end = this.file.indexOf(this.header.lineEnd, start);
		if (end < 0) this.failHere("the file ends before 'end_header'");
		if (end - start > kMaxLineLength)
			this.failHere(`a line of ${grouped(end - start)} letters is none of a header`);
		this.header.size = end + 1;

		const [keyword = "", ...rest] = words(textOf(this.file.subarray(start, end)));
		if (keyword === "comment" || keyword === "obj_info") return true;
		const readers = { format: this.readFormat, element: this.readElement, property: this.readProperty };
		if (Object.hasOwn(readers, keyword)) readers[keyword].call(this, rest);
		else if (keyword !== "end_header") this.failHere(`${quoted(keyword)} is no keyword of a PLY header`);
		if (rest.length > 0) this.failHere(`${quoted(rest[0])} is one word too many`);
		return keyword !== "end_header";
	}

	readFormat(rest) {
		if (this.header.format !== null || this.header.elements.length > 0)
			this.failHere("'format' stands once, before the elements");
		const format = rest.shift() ?? "";
		if (!["ascii", "binary_little_endian", "binary_big_endian"].includes(format))
			this.failHere(`'format' takes ascii, binary_little_endian or binary_big_endian, not ${quoted(format)}`);
		const version = rest.shift() ?? "";
		if (version !== "1.0") this.failHere(`the version is 1.0 in every PLY file, not ${quoted(version)}`);
		this.header.format = format;
	}

	readElement(rest) {
		this.checkLastElement();
		const name = this.takeName(rest, "element");
		const count = rest.shift() ?? "";
		if (!/^[0-9]+$/.test(count) || !Number.isSafeInteger(Number(count)))
			this.failHere(
				`the element ${quoted(name)} has a count of ${quoted(count)}, which is no whole number of 53 bits`
			);
		if (this.header.elements.some((other) => other.name === name))
			this.failHere(`there are two elements ${quoted(name)}`);
		if (this.header.elements.length === kMaxElements) this.failHere(`there are more than ${kMaxElements} elements`);
		this.header.elements.push({ name, count: Number(count), properties: [] });
	}

	// An element is complete where the next one or the end follows.
	checkLastElement() {
		const element = this.header.elements.at(-1);
		if (element !== undefined && element.properties.length === 0 && element.count !== 0)
			this.failHere(`the element ${quoted(element.name)} ends without a property`);
	}

	readProperty(rest) {
		const element = this.header.elements.at(-1);
		if (element === undefined) this.failHere("there is a property before the first element");
		let countType = null;
		if (rest[0] === "list") {
			rest.shift();
			countType = this.takeType(rest);
			if (!countType.isInteger) this.failHere("a list's count is of a type of whole numbers");
		}
		const type = this.takeType(rest);
		const name = this.takeName(rest, "property");
		if (element.properties.some((other) => other.name === name))
			this.failHere(`there are two properties ${quoted(name)}`);
		if (element.properties.length === kMaxProperties)
			this.failHere(`there are more than ${grouped(kMaxProperties)} properties`);
		element.properties.push({ name, type, countType });
	}

	takeType(rest) {
		const name = rest.shift() ?? "";
		const type = kTypesByName.get(name);
		if (type === undefined) this.failHere(`${quoted(name)} is no type of a PLY file`);
		return type;
	}

	takeName(rest, keyword) {
		const name = rest.shift();
		if (name === undefined) this.failHere(`the ${keyword} has no name`);
		return name;
	}

	failHere(what) {
		fail(atLine(this.header.lineCount), what);
	}
}

function hasLists(element) {
	return element.properties.some((property) => property.countType !== null);
}

// The least that a row takes: in ASCII, a letter and a blank for each value.
function minRowSize(element, isAscii) {
	return element.properties.reduce(
		(size, property) => size + (isAscii ? 2 : (property.countType ?? property.type).size),
		0
	);
}

function checkCounts(header, fileSize) {
	const isAscii = header.format === "ascii";
	let offset = header.size;
	let isExact = !isAscii; // neither lists nor text before: this is where the element starts
	for (const element of header.elements) {
		if (element.count === 0) continue;
		const isFixed = !isAscii && !hasLists(element);
		const rowSize = minRowSize(element, isAscii);
		const fitting = Math.floor((fileSize - offset + (isAscii ? 1 : 0)) / rowSize); // the last line may lack its end
		if (element.count > fitting)
			fail(
				atByte(offset),
				`the header promises ${grouped(element.count)} of the element ${quoted(element.name)}, of ` +
					`${isFixed ? "" : "at least "}${grouped(rowSize)} bytes each; from here on there are ` +
					`${isExact ? "" : "at most "}${grouped(fileSize - offset)} bytes, room for ${grouped(fitting)}`
			);
		offset += element.count * rowSize - (isAscii ? 1 : 0);
		isExact = isExact && isFixed;
	}
}

// Rows of text, one a line.
class AsciiBody {
	constructor(file, header) {
		this.file = file;
		this.lineEnd = header.lineEnd;
		this.lineNumber = header.lineCount;
		this.next = header.size; // where the next line starts
	}

	beginElement(element) {
		this.element = element;
		this.numbers = new Float64Array(element.properties.length);
		this.rowCount = 0;
	}

	nextRow() {
		const line = this.takeLine();
		++this.rowCount;
		let at = 0;
		const { properties } = this.element;
		for (let i = 0; i < properties.length; ++i) {
			const { name, type, countType } = properties[i];
			if (at === line.length) this.failHere(`ends before its '${name}'`);
			this.numbers[i] = this.number(line[at++], countType ?? type, name);
			if (countType === null) continue;
			if (this.numbers[i] < 0) this.failHere(`has a negative count of '${name}'`);
			if (this.numbers[i] > line.length - at) this.failHere(`ends before its '${name}'`);
			at += this.numbers[i];
		}
		if (at < line.length) this.failHere(`goes on after its values, with ${quoted(line[at])}`);
	}

	value(property) {
		return this.numbers[property];
	}

	where() {
		return atLine(this.lineNumber);
	}

	endFile() {
		while (this.next < this.file.length)
			if (this.readLine().length > 0) fail(this.where(), "the file goes on after all that its header promises");
	}

	// The words of the next line that has any.
	takeLine() {
		for (;;) {
			if (this.next >= this.file.length)
				fail(
					this.where(),
					`the file ends after ${grouped(this.rowCount)} of the ${grouped(this.element.count)} that its ` +
						`header promises of the element ${quoted(this.element.name)}`
				);
			const line = this.readLine();
			if (line.length > 0) return line;
		}
	}

	readLine() {
		const found = this.file.indexOf(this.lineEnd, this.next);
		const end = found < 0 ? this.file.length : found;
		const line = words(textOf(this.file.subarray(this.next, end)));
		this.next = end + 1;
		++this.lineNumber;
		return line;
	}

	number(word, type, name) {
		const isNumber = /^[+-]?([0-9]+\.?[0-9]*|\.[0-9]+)(e[+-]?[0-9]+)?$/i.test(word);
		const isNotFinite = /^[+-]?(nan|inf|infinity)$/i.test(word); // which the vertices' reader refuses by its place
		if (!isNumber && !isNotFinite) this.failHere(`has a '${name}' of ${quoted(word)}, which is no number`);
		const number = isNumber ? Number(word) : NaN;
		if (type.isInteger && !(Number.isInteger(number) && number >= type.lowest && number <= type.largest))
			this.failHere(`has a '${name}' of ${quoted(word)}, which is no whole number of its type`);
		return type === kTypes.float32 ? Math.fround(number) : number; // as the binary formats have it
	}

	failHere(what) {
		fail(this.where(), `${quoted(this.element.name)} ${grouped(this.rowCount - 1)} ${what}`);
	}
}

// Rows of bytes: all of one size, or, with lists, of as many as each says.
class BinaryBody {
	constructor(file, header) {
		this.data = new DataView(file.buffer, file.byteOffset, file.byteLength);
		this.isLittle = header.format === "binary_little_endian";
		this.next = header.size; // where the next row starts
	}

	beginElement(element) {
		this.element = element;
		this.rowCount = 0;
		this.offsets = new Array(element.properties.length).fill(0); // of each property in the row
		this.rowSize = hasLists(element) ? null : minRowSize(element, false);
		if (this.rowSize === null) return;
		let offset = 0;
		element.properties.forEach((property, i) => {
			this.offsets[i] = offset;
			offset += property.type.size;
		});
		if (element.count * this.rowSize > this.data.byteLength - this.next)
			this.failShort(Math.floor((this.data.byteLength - this.next) / this.rowSize));
	}

	nextRow() {
		this.row = this.next;
		if (this.rowSize !== null) this.next += this.rowSize;
		else this.walkRow();
		++this.rowCount;
	}

	value(property) {
		return this.load(this.row + this.offsets[property], this.element.properties[property].type);
	}

	where() {
		return atByte(this.row);
	}

	endFile() {
		if (this.next !== this.data.byteLength)
			fail(
				atByte(this.next),
				`the file goes on after all that its header promises, up to ${atByte(this.data.byteLength)}`
			);
	}

	walkRow() {
		this.element.properties.forEach(({ name, type, countType }, i) => {
			const start = this.next;
			this.offsets[i] = start - this.row;
			if (countType === null) {
				this.advance(type.size);
				return;
			}
			this.advance(countType.size);
			const count = this.load(start, countType);
			if (count < 0)
				fail(
					atByte(start),
					`${quoted(this.element.name)} ${grouped(this.rowCount)} has a negative count of '${name}'`
				);
			this.advance(count * type.size);
		});
	}

	advance(size) {
		if (size > this.data.byteLength - this.next) this.failShort(this.rowCount);
		this.next += size;
	}

	failShort(rowCount) {
		fail(
			atByte(this.data.byteLength),
			`the file ends after ${grouped(rowCount)} of the ${grouped(this.element.count)} that its header promises ` +
				`of the element ${quoted(this.element.name)}`
		);
	}

	load(offset, type) {
		return type.load(this.data, offset, this.isLittle);
	}
}
