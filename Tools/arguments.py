"""How the Python programs of this folder answer --help and bad arguments."""

import argparse


class ArgumentParser(argparse.ArgumentParser):
	"""Its --help begins with the program's documentation. Of a bad argument it says in one sentence what is wrong."""

	def __init__(self, documentation):
		super().__init__(description=documentation, formatter_class=argparse.RawDescriptionHelpFormatter)

	def error(self, message):
		self.exit(2, f"{self.prog}: {message}\n")
