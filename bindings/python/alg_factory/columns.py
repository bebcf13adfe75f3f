"""Structured arrays, column by column."""
import numpy as np


def with_names(rows, field, names):
    """The rows with a field of numbers as texts, up to the length of the longest."""
    names = np.array(list(names) or [""])
    kinds = [(name, names.dtype if name == field else rows.dtype[name]) for name in rows.dtype.names]
    result = np.empty(rows.shape, kinds)
    for name in rows.dtype.names:
        result[name] = names[rows[name]] if name == field else rows[name]
    result.setflags(write=False)
    return result
