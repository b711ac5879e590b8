"""docs/performance.md and its picture."""


def write(root, results, machine, module):
    raise NotImplementedError
