"""The typical tables of ISO/IEC 10918-1, Annex K, as qelj_typical.h has them. Of each pair, the first is for luminance
and the second for chrominance. They are read-only: scale a copy of a quantiser."""
import numpy as np

from . import _table


def _table_of(name):
    table = np.array(_table.TYPICAL[name], np.uint8)
    table.flags.writeable = False
    return table


quantisers = _table_of("Quantisers")  #: in zig-zag order, quality 50
dc_bits = _table_of("DcBits")         #: how many codes have 1 to 16 bits
dc_vals = _table_of("DcVals")         #: the symbols in the order of their codes, the same for both
ac_bits = _table_of("AcBits")
ac_vals = _table_of("AcVals")
