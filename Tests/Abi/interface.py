#!/usr/bin/env python3
"""Prints, in lines of text, what built programs depend on in the shared libraries: the names of the libraries, the
symbols that they export, and, for every type that these symbols use, its size, the offset of each member, and the
values of enumerators.

    interface.py DESCRIPTION...              prints the lines of libraries, which abidw has described
    interface.py --compare RECORD LINES      prints which lines of the record are missing; exit code 1 if any is

A structure for C that begins with its own size may grow at its end, because programs say how much of it they know.
Types of the standard library are named, but their members are not listed. If one grows, the size of every type that has
it as a member shows that.
"""

import os
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

TYPE_TAGS = ('class-decl', 'union-decl', 'enum-decl')
OF_STANDARD_LIBRARY = re.compile(r'_ZN?K?S[tabsiod]')  # instances of its templates come and go with the optimiser
PUBLIC_HEADER = re.compile(r'/Runtime/(\w+/)?include/')


class Description:
	"""What abidw says of a library."""

	def __init__(self, file_name):
		self.corpus = ElementTree.parse(file_name).getroot()
		self.elements = {element.get('id'): element for element in self.corpus.iter() if element.get('id')}
		self.parents = {child: parent for parent in self.corpus.iter() for child in parent}
		self.definitions = {self.scoped_name(element): element for element in self.corpus.iter()
			if element.tag in TYPE_TAGS and element.get('is-declaration-only') != 'yes'}

	def scoped_name(self, element):
		names = []
		while element is not None:
			if element.tag in TYPE_TAGS + ('namespace-decl',):
				names.insert(0, element.get('name'))
			element = self.parents.get(element)
		return '::'.join(names)

	def type_name(self, element):
		if element.tag == 'type-decl':
			return element.get('name')
		if element.tag in TYPE_TAGS:
			return self.scoped_name(element)
		if element.tag == 'function-type':
			types = [self.type_name(type_) for type_ in self.types_of(element)]
			return '%s (%s)' % (types[-1], ', '.join(types[:-1]))
		name = self.type_name(self.elements[element.get('type-id')])
		if element.tag == 'qualified-type-def':
			return ' '.join([name] + [word for word in ('const', 'volatile') if element.get(word) == 'yes'])
		if element.tag == 'pointer-type-def':
			return name + ' *'
		if element.tag == 'reference-type-def':
			return name + (' &&' if element.get('kind') == 'rvalue' else ' &')
		if element.tag == 'array-type-def':
			return name + ''.join('[%s]' % subrange.get('length') for subrange in element.findall('subrange'))
		return name  # of a typedef

	def types_of(self, function):
		"""A function's parameters', and last what it returns."""
		ids = [part.get('type-id') for tag in ('parameter', 'return') for part in function.findall(tag)]
		return [self.elements[type_id] for type_id in ids if type_id]

	def types_in(self, element):
		"""The types that a type is made of."""
		if element.tag in TYPE_TAGS:
			parts = element.findall('base-class')
			parts += [member.find('var-decl') for member in element.findall('data-member')]
			yield from (self.elements[part.get('type-id')] for part in parts)
			for member in element.findall('member-type'):
				if member.get('access') == 'public':
					yield from (nested for nested in member if nested.tag == 'enum-decl')
		elif element.tag == 'function-type':
			yield from self.types_of(element)
		elif element.get('type-id'):
			yield self.elements[element.get('type-id')]

	def types_that_come_with_symbols(self):
		found = set()
		pending = []
		for element in self.corpus.iter():
			if element.get('elf-symbol-id') and not OF_STANDARD_LIBRARY.match(element.get('elf-symbol-id')):
				pending += self.types_of(element) if element.tag == 'function-decl' else self.types_in(element)
				while element is not None:
					if element.tag in TYPE_TAGS:
						pending.append(element)
					element = self.parents.get(element)
		while pending:
			element = pending.pop()
			if element.get('is-declaration-only') == 'yes':
				element = self.definitions.get(self.scoped_name(element), element)
			if element not in found:
				found.add(element)
				pending += self.types_in(element)
		return [element for element in found if element.tag in TYPE_TAGS and
			element.get('is-declaration-only') != 'yes' and
			PUBLIC_HEADER.search(os.path.normpath(element.get('filepath', '')))]

	def lines(self):
		library = self.corpus.get('soname')
		yield library + ' is its name'
		returns = {function.get('elf-symbol-id'): self.type_name(self.types_of(function)[-1])
			for function in self.corpus.iter('function-decl')
			if function.get('elf-symbol-id') and function.find('return') is not None}
		for symbol in self.corpus.iter('elf-symbol'):
			name = symbol.get('name')
			if not OF_STANDARD_LIBRARY.match(name):
				returned = returns.get(name, 'void')
				yield '%s exports %s%s' % (library, demangled(name), '' if returned == 'void' else ' -> ' + returned)
		for element in self.types_that_come_with_symbols():
			yield from self.lines_of_enum(element) if element.tag == 'enum-decl' else self.lines_of_class(element)

	def lines_of_enum(self, enumeration):
		name = self.scoped_name(enumeration)
		underlying = self.elements[enumeration.find('underlying-type').get('type-id')]
		yield '%s has %d bytes' % (name, int(underlying.get('size-in-bits')) // 8)
		for enumerator in enumeration.findall('enumerator'):
			yield '%s::%s is %s' % (name, enumerator.get('name'), enumerator.get('value'))

	def lines_of_class(self, class_):
		name = self.scoped_name(class_)
		yield '%s has %d bytes' % (name, int(class_.get('size-in-bits')) // 8)
		for part in class_.findall('base-class') + class_.findall('data-member'):
			if part.get('static') == 'yes':
				continue
			variable = part.find('var-decl')
			type_ = self.type_name(self.elements[(part if variable is None else variable).get('type-id')])
			offset = int(part.get('layout-offset-in-bits')) // 8
			variable_name = '' if variable is None else ' ' + variable.get('name')
			yield '%s has at byte %d %s%s' % (name, offset, type_, variable_name)


def demangled(symbol):
	return subprocess.run(['c++filt', symbol], text=True, check=True, stdout=subprocess.PIPE).stdout.strip()


def with_numbers_in_order(line):
	return [int(part) if part.isdigit() else part for part in re.split(r'(\d+)', line)]


def has_grown(line, known):
	"""Whether a line tells the size of a type that is larger now."""
	size = re.fullmatch(r'(\S+) has (\d+) bytes', line)
	sizes = [re.fullmatch(r'(\S+) has (\d+) bytes', each) for each in known] if size else []
	return any(each and each[1] == size[1] and int(each[2]) > int(size[2]) for each in sizes)


def compare(record_name, lines_name):
	with open(record_name, encoding='utf-8') as record_file, open(lines_name, encoding='utf-8') as lines_file:
		record = [line for line in record_file.read().splitlines() if not line.startswith('#')]
		known = set(lines_file.read().splitlines())
	if any(line.endswith(' is its name') and line not in known for line in record):
		print('the libraries have other names now, which no built program asks for')
		return 0
	# A structure that begins with its own size may grow: the size says how much of it a program knows.
	growing = {line.split()[0] for line in record if line.endswith(' has at byte 0 unsigned int struct_size')}
	gone = [line for line in record
		if line not in known and not (line.split()[0] in growing and has_grown(line, known))]
	if gone:
		print('breaks built programs')
	for line in gone:
		print('  no longer: ' + line)
	if not gone:
		added = len(known.difference(record))
		print('has more than before: %d line%s' % (added, '' if added == 1 else 's') if added else 'the same')
	return 1 if gone else 0


def main():
	if sys.argv[1] == '--compare':
		return compare(*sys.argv[2:])
	lines = {line for file_name in sys.argv[1:] for line in Description(file_name).lines()}
	print('\n'.join(sorted(lines, key=with_numbers_in_order)))
	return 0


sys.exit(main())
