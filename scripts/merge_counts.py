"""Adds up what the processes of the tests have counted: merge_counts.py FOLDER BUILD. In FOLDER each process has a
folder of its own, with the paths of the build tree in it; the sums go into the build tree. The compiler's own tool
for this takes nothing that was written under Wine."""
import os
import struct
import sys

FUNCTION, ARCS, SUMMARY = 0x01000000, 0x01A10000, 0xA1000000
HEAD = 16  # mark, version, stamp and checksum, which are of one build


def read(path):
    """The head, the number of runs, and for each function its marks and counts; (b"", []) where it is not linked in."""
    with open(path, "rb") as file:
        data = file.read()
    at, runs, functions = HEAD, 1, []
    while at + 8 <= len(data):
        tag, size = struct.unpack_from("<Ii", data, at)
        at += 8
        if tag == ARCS:
            # A negative size stands for that many zeros.
            counts = list(struct.unpack_from(f"<{size // 8}q", data, at)) if size >= 0 else [0] * (-size // 8)
            functions[-1] = (functions[-1][0], counts)
        elif tag == FUNCTION:
            functions.append((data[at:at + size], []))
        elif tag == SUMMARY:
            runs = struct.unpack_from("<I", data, at)[0]
        elif tag != 0:
            raise ValueError(f"{path}: unknown record {tag:#x} at {at - 8}")
        at += max(size, 0)
    return data[:HEAD], runs, functions


def add(first, second):
    head, runs, functions = first
    if second[0] != head or len(second[2]) != len(functions):
        raise ValueError("counts of different builds")
    sums = []
    for (marks, counts), (others, more) in zip(functions, second[2]):
        sums.append((marks or others, [a + b for a, b in zip(counts, more)] if marks and others else counts or more))
    return head, runs + second[1], sums


def write(path, counts):
    head, runs, functions = counts
    most = max((count for _, arcs in functions for count in arcs), default=0)
    data = head + struct.pack("<IiIi", SUMMARY, 8, runs, min(most, 0x7FFFFFFF))
    for marks, arcs in functions:
        data += struct.pack("<Ii", FUNCTION, len(marks)) + marks
        if marks:
            data += struct.pack(f"<Ii{len(arcs)}q", ARCS, 8 * len(arcs), *arcs)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(data + bytes(4))


def main(folder, build):
    sums = {}
    processes = os.listdir(folder)
    for process in processes:
        own = os.path.join(folder, process) + build
        for where, _, names in os.walk(own):
            for name in names:
                path = os.path.join(where, name)
                target = os.path.join(build, os.path.relpath(path, own))
                try:
                    counts = read(path)
                except (struct.error, ValueError) as fault:
                    # A process that was killed as it wrote.
                    print(f"{path}: {fault}")
                    continue
                sums[target] = add(sums[target], counts) if target in sums else counts
    for target, counts in sums.items():
        write(target, counts)
    print(f"counts of {len(processes)} processes for {len(sums)} files")


if len(sys.argv) != 3:
    sys.exit(__doc__)
main(*sys.argv[1:])
