#!/usr/bin/env python3
"""Writes the colour matching tables of the module from the published CIE 1931 2-degree observer.

    tools/colormatching.py ONE_NM.csv FIVE_NM.csv module/source/pattern/generator

The files have the columns nm, x, y, z.
"""
import csv
import sys


def rows(path):
    with open(path, newline="") as file:
        return list(csv.DictReader(file))


# Rows that are published with fewer digits too; those hold.
ROUNDED = {"400": {"z": "0.06785"}, "555": {"x": "0.51205", "z": "0.00575"}}


def literal(text, suffix):
    return (text if "." in text or "e" in text else text + ".0") + suffix


def write(path, about, name, element, suffix, table, first, step):
    with open(path, "w") as out:
        out.write(f"// {about}\n#pragma once\n\n#include \"velto/types.h\"\n\nnamespace velto::pattern\n{{\n\n")
        out.write(f"// x, y and z from {first} nm on in steps of {step} nm.\n")
        out.write(f"inline constexpr int {name}Rows = {len(table)};\n")
        out.write(f"inline constexpr int {name}First = {first};\n")
        out.write(f"inline constexpr {element} {name}[{name}Rows][3] = {{\n    // clang-format off\n")
        for row in table:
            row = {**row, **(ROUNDED.get(row["nm"], {}) if step == 1 else {})}
            out.write("    {" + ", ".join(literal(row[c], suffix) for c in "xyz") + f"}}, // {row['nm']}\n")
        out.write("    // clang-format on\n};\n\n} // namespace velto::pattern\n")


def main():
    one, five, folder = sys.argv[1:]
    write(f"{folder}/colormatching1nm.h", "The CIE 1931 2-degree standard observer.", "kColorMatching1nm",
          "Float32", "f", rows(one), 360, 1)
    write(f"{folder}/colormatching5nm.h", "The CIE 1931 2-degree standard observer, to four decimals.",
          "kColorMatching5nm", "Float", "", rows(five), 380, 5)


main()
