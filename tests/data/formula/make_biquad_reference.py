#!/usr/bin/python3
"""Reference outputs of Butterworth filters in second-order sections.

Each case designs a digital Butterworth filter with scipy.signal.butter
(output='sos', the band edges pre-warped by the bilinear design) and filters
a test signal with sosfilt, starting either from rest or from the steady
state of a constant input (sosfilt_zi times that value).

The test signal is rebuilt by the C++ test from the same formula:
    x[n] = float32( sin(2 pi 3 n / fs) + 0.5 sin(2 pi 17.3 n / fs + 0.2)
                    + 0.25 sin(2 pi 61 n / fs + 1.1) + 0.8 (n == 37) + offset )
Writes biquad_reference.txt next to this script:
    case <type> <order> <fs> <low> <high> <init> <offset> <count>
followed by <count> output values, one per line.
Types: 1 low-pass (at high), 2 high-pass (at low), 3 band-pass, 4 band-stop.
"""
import os
import numpy as np
from scipy import signal

COUNT = 400
CASES = [
    # type, order, fs, low, high, init, offset
    (1, 1, 256, 0, 40, 0.0, 0.0),
    (1, 4, 256, 0, 30, 0.0, 0.0),
    (1, 10, 1000, 0, 70, 0.0, 0.0),
    (2, 2, 256, 0.5, 0, 0.0, 0.0),
    (2, 5, 200, 1.0, 0, 0.0, 0.0),
    (3, 1, 256, 8, 13, 0.0, 0.0),
    (3, 3, 500, 0.3, 35, 0.0, 0.0),
    (3, 4, 256, 1, 45, 0.0, 0.0),
    (3, 10, 1000, 20, 120, 0.0, 0.0),
    (4, 2, 256, 48, 52, 0.0, 0.0),
    (4, 5, 500, 45, 55, 0.0, 0.0),
    (1, 3, 256, 0, 25, 2.0, 2.0),
    (4, 4, 256, 40, 60, -1.5, -1.5),
]


def test_signal(fs, offset):
    n = np.arange(COUNT, dtype=np.float64)
    x = (np.sin(2 * np.pi * 3 * n / fs) + 0.5 * np.sin(2 * np.pi * 17.3 * n / fs + 0.2)
         + 0.25 * np.sin(2 * np.pi * 61 * n / fs + 1.1) + offset)
    x[37] += 0.8
    return x.astype(np.float32).astype(np.float64)


def design(ftype, order, fs, low, high):
    if ftype == 1:
        return signal.butter(order, high, 'lowpass', fs=fs, output='sos')
    if ftype == 2:
        return signal.butter(order, low, 'highpass', fs=fs, output='sos')
    if ftype == 3:
        return signal.butter(order, [low, high], 'bandpass', fs=fs, output='sos')
    return signal.butter(order, [low, high], 'bandstop', fs=fs, output='sos')


def main():
    lines = []
    for ftype, order, fs, low, high, init, offset in CASES:
        # The filter receives its parameters as 32-bit floats.
        low32, high32 = float(np.float32(low)), float(np.float32(high))
        sos = design(ftype, order, float(np.float32(fs)), low32, high32)
        x = test_signal(fs, offset)
        zi = signal.sosfilt_zi(sos) * float(np.float32(init))
        y, _ = signal.sosfilt(sos, x, zi=zi)
        lines.append('case %d %d %d %r %r %r %r %d' % (ftype, order, fs, low, high, init, offset, COUNT))
        lines.extend('%.9e' % v for v in y)
    out = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'biquad_reference.txt')
    with open(out, 'w') as f:
        f.write('\n'.join(lines) + '\n')


if __name__ == '__main__':
    main()
