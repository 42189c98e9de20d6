"""EEG and polysomnography recordings: open, read, convert, create.

    >>> import sigfile
    >>> rec = sigfile.open("night.edf")          # native, EDF, BDF, Nihon Kohden ...
    >>> data = rec.read(start=0, stop=30, channels=["C3", "C4"])   # float32, volts
    >>> raw = rec.to_mne()                          # an mne.io.RawArray

Failures of the library raise :class:`sigfile.Error`, which carries the
library's error ``code`` and its (French) ``message``.
"""

from __future__ import annotations

import datetime as _dt
import json as _json
import math as _math
from typing import Iterable, Sequence

import numpy as _np

from . import _core
from ._core import Error

__all__ = ["Error", "Recording", "open", "create", "export", "convert", "format_of"]

# Volts per unit of the voltage units a channel may be stored in.
_VOLTS = {"V": 1.0, "mV": 1e-3, "\u00b5V": 1e-6, "uV": 1e-6, "nV": 1e-9}

# MNE channel types of the library's trace types.
_MNE_TYPES = {
    "EEG": "eeg", "EOG": "eog", "EMG": "emg", "ECG": "ecg",
    "Airflow": "resp", "Respiratory effort": "resp", "Pressure": "resp",
    "SpO2": "bio", "Heart rate": "bio", "Plethysmogram": "bio",
    "Temperature": "temperature", "Stimulus": "stim", "Marker": "stim",
}

_TAPERS = {"rect": 0, "cosine": 1, "hanning": 2, "hamming": 3, "blackman": 4}
_DETRENDS = {"none": 0, "mean": 1, "linear": 2}


def _error(message: str, code: int = 87) -> Error:
    """A library error raised by the Python layer (87: invalid parameter)."""
    e = Error(message)
    e.code, e.message = code, message
    return e


def format_of(path: str) -> tuple[int, str]:
    """The format number and name of a file, e.g. ``(6, "edf")``."""
    return tuple(_core.format_of(str(path)))


def open(path, read_only: bool = True) -> "Recording":  # noqa: A001 - the natural name
    """Opens a recording of any format the library reads."""
    return Recording(_core.Recording(str(path), bool(read_only)))


class Recording:
    """An open recording.  Use it as a context manager or call :meth:`close`."""

    def __init__(self, core):
        self._core = core
        self._info = None

    # --- life
    def close(self) -> None:
        self._core.close()

    @property
    def closed(self) -> bool:
        return self._core.closed

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __repr__(self):
        state = "closed" if self.closed else f"{len(self.channels)} channels, {self.duration:.1f} s"
        return f"<sigfile.Recording {self._core.path!r} ({state})>"

    # --- description
    @property
    def path(self) -> str:
        return self._core.path

    @property
    def info(self) -> dict:
        """What ``sigfile info --json`` prints, as a dict."""
        if self._info is None or self.closed:
            self._info = _json.loads(self._core.info_json())
        return self._info

    @property
    def start(self) -> _dt.datetime:
        """Date and time of the recording's start (local time, naive)."""
        return _dt.datetime.fromisoformat(self._core.start_iso())

    @property
    def duration(self) -> float:
        """Seconds of signal."""
        return float(self.info["duration_s"])

    @property
    def channels(self) -> list[dict]:
        """The record channels: label, montage_label, frequency, unit, type_name ..."""
        return self._core.channels("")

    @property
    def montages(self) -> list[str]:
        """Names of the reformatted montages (computed channels) the recording holds."""
        names = []
        for rec in self.info.get("recording_montages", []):
            names += [m["name"] for m in rec.get("reformatted_montages", []) if m["name"]]
        return names

    @property
    def rate_groups(self) -> dict[float, list[str]]:
        """Labels of the record channels by sampling frequency."""
        groups: dict[float, list[str]] = {}
        for ch in self.channels:
            groups.setdefault(ch["frequency"], []).append(ch["label"])
        return groups

    @property
    def events(self) -> list[dict]:
        """The status items (``sigfile events --json``), each with onset_s, duration_s and text.

        ``text`` is the item as one line, the way an EDF+ annotation holds it ("Group: name",
        or the name alone for the annotation group).
        """
        return _json.loads(self._core.events_json())

    def events_frame(self):
        """The events as a pandas DataFrame (pandas must be installed)."""
        import pandas as pd

        events = self.events
        columns = ["onset_s", "duration_s", "text", "name", "group", "channel", "begin", "end", "comments", "group_id"]
        return pd.DataFrame([{k: e.get(k) for k in columns} for e in events], columns=columns)

    # --- samples
    def _select(self, channels, montage):
        table = self._core.channels(montage or "")
        if channels is None:
            return list(range(len(table))), table
        if isinstance(channels, (str, int)):
            channels = [channels]
        picked = []
        for ch in channels:
            if isinstance(ch, (int, _np.integer)):
                if not 0 <= int(ch) < len(table):
                    raise _error(_core.messages["unknown_channel"] % ch)
                picked.append(int(ch))
                continue
            found = [i for i, t in enumerate(table) if t["label"].lower() == str(ch).lower()]
            found = found or [i for i, t in enumerate(table) if t["montage_label"].lower() == str(ch).lower()]
            # An electrode names its channel when it is the first of one channel only ("C3" for "C3-REF").
            if not found:
                found = [i for i, t in enumerate(table) if t["label"].split("-")[0].lower() == str(ch).lower()]
                found = found if len(found) == 1 else []
            if not found:
                raise _error(_core.messages["unknown_channel"] % ch)
            picked.append(found[0])
        return picked, table

    def read(self, start: float | None = None, stop: float | None = None, channels=None, montage: str | None = None,
             unit: str = "V", sfreq: float | None = None) -> _np.ndarray:
        """Samples of a time range (seconds from the start) as a float32 array, channels x samples.

        ``channels``: labels or indexes (all by default); ``montage``: the name of a reformatted
        montage, whose channels the library computes with its formula engine.  ``unit``: "V"
        (voltage channels in volts, others in their own unit), "uV", or "native" (every channel in
        its stored unit).  Channels of different rates are read together only when ``sfreq`` is
        given: each rate group is then resampled to it.
        """
        if self.closed:
            raise _error(_core.messages["closed"] % self.path, 6)
        picked, table = self._select(channels, montage)
        if unit not in ("V", "uV", "\u00b5V", "native"):
            raise ValueError(f"unit must be 'V', 'uV' or 'native', not {unit!r}")
        rates = sorted({table[i]["frequency"] for i in picked})
        if not picked:
            return _np.zeros((0, 0), dtype=_np.float32)
        if len(rates) > 1 and sfreq is None:
            groups = ", ".join(f"{r:g} Hz: " + " ".join(table[i]["label"] for i in picked if table[i]["frequency"] == r)
                               for r in rates)
            raise _error(_core.messages["mixed_rates"] % groups)
        groups = self._read_groups(picked, table, start, stop, montage)
        if len(groups) == 1 and (sfreq is None or _math.isclose(sfreq, rates[0])):
            data = groups[0][1]
        else:
            parts = {}
            for rows, block, r in groups:
                if not _math.isclose(r, sfreq):
                    block = _core.resample(block, r, sfreq)
                parts.update({i: block[k] for k, i in enumerate(rows)})
            n = min(len(p) for p in parts.values())
            data = _np.empty((len(picked), n), dtype=_np.float32)
            for k, i in enumerate(picked):
                data[k] = parts[i][:n]
        self._scale(data, [table[i] for i in picked], unit)
        return data

    def read_by_rate(self, start: float | None = None, stop: float | None = None, channels=None,
                     montage: str | None = None, unit: str = "V") -> dict[float, tuple[list[str], _np.ndarray]]:
        """Every rate group of the chosen channels, read in one pass over the records.

        Returns ``{sfreq: (labels, array)}``, each array channels x samples as :meth:`read` gives it.
        """
        if self.closed:
            raise _error(_core.messages["closed"] % self.path, 6)
        picked, table = self._select(channels, montage)
        result = {}
        for rows, block, rate in self._read_groups(picked, table, start, stop, montage):
            self._scale(block, [table[i] for i in rows], unit)
            result[rate] = ([table[i]["label"] for i in rows], block)
        return result

    def _read_groups(self, picked, table, start, stop, montage):
        """[(rows, array, rate)] for each rate of the picked channels, from one pass."""
        rates = []
        for i in picked:
            if table[i]["frequency"] not in rates:
                rates.append(table[i]["frequency"])
        requests, rows_of = [], []
        for f in rates:
            rows = [i for i in picked if table[i]["frequency"] == f]
            total = self._core.num_records() * table[rows[0]]["samples_per_record"]
            first = 0 if start is None else int(round(float(start) * f))
            end = total if stop is None else int(round(float(stop) * f))
            if first < 0 or end > total or first > end:
                raise _error(_core.messages["time_range"] % (start, stop, f"{total / f:g}"))
            requests.append((rows, first, end - first))
            rows_of.append(rows)
        arrays = self._core.read_groups(requests, False, montage or "")
        return [(rows, array, f) for rows, array, f in zip(rows_of, arrays, rates)]

    @staticmethod
    def _scale(data, specs, unit):
        if unit == "native":
            return
        to = 1.0 if unit == "V" else 1e-6
        for k, spec in enumerate(specs):
            volts = _VOLTS.get(spec["unit"])
            if volts is not None and volts != to:
                data[k] *= _np.float32(volts / to)

    # --- conversions
    def to_mne(self, sfreq: float | None = None):
        """The recording as an ``mne.io.RawArray`` (volts), its events as annotations.

        Channels of different rates are resampled to the fastest rate (or ``sfreq``).
        """
        import mne

        table = self.channels
        if not table:
            raise _error(_core.messages["no_channels"] % self.path)
        rates = {ch["frequency"] for ch in table}
        target = sfreq or max(rates)
        data = self.read(unit="V", sfreq=None if len(rates) == 1 and sfreq is None else target)
        names, seen = [], {}
        for ch in table:
            name = ch["label"] or ch["montage_label"]
            seen[name] = seen.get(name, 0) + 1
            names.append(name if seen[name] == 1 else f"{name}-{seen[name] - 1}")
        types = [_MNE_TYPES.get(ch["type_name"], "misc") for ch in table]
        info = mne.create_info(names, float(target), types)
        raw = mne.io.RawArray(data.astype(_np.float64, copy=False), info, verbose="error")
        start = self.start.replace(tzinfo=_dt.timezone.utc)
        raw.set_meas_date(start)
        events = [e for e in self.events if e["text"]]
        if events:
            raw.set_annotations(mne.Annotations(
                onset=[e["onset_s"] for e in events], duration=[e["duration_s"] for e in events],
                description=[e["text"] for e in events], orig_time=start))
        return raw

    def export(self, out, montage: str | None = None, channels: Sequence[str] | None = None,
               resample: bool = False) -> list[str]:
        """Writes the recording as ``out`` in the format its name chooses (.edf, .bdf, .sig).

        Returns what the conversion had to do to fit the output (notes, in French).
        """
        return self._core.export(str(out), montage or "", list(channels or []), bool(resample))

    def spectrum(self, epoch: float = 2.0, channels=None, start: float | None = None, stop: float | None = None,
                 montage: str | None = None, taper: str = "hanning", detrend: str = "none"):
        """Power spectra of consecutive epochs computed by the library's FFT.

        Returns ``(freqs, times, power)``: bin frequencies (Hz), epoch start times (s), and the
        power of every bin, shape channels x epochs x bins (volts squared for voltage channels).
        The channels must share one rate whose product with ``epoch`` is a power of two.
        """
        picked, table = self._select(channels, montage)
        if not picked:
            raise _error(_core.messages["no_channels"] % self.path)
        data = self.read(start=start, stop=stop, channels=channels, montage=montage, unit="V")
        rate = table[picked[0]]["frequency"]
        if taper not in _TAPERS or detrend not in _DETRENDS:
            raise ValueError(f"taper in {sorted(_TAPERS)}, detrend in {sorted(_DETRENDS)}")
        power = _core.spectra(data, rate, float(epoch), _TAPERS[taper], _DETRENDS[detrend])
        freqs = _np.arange(power.shape[2]) / float(epoch)
        offset = 0.0 if start is None else float(start)
        times = offset + _np.arange(power.shape[1]) * float(epoch)
        return freqs, times, power


def create(path, data, sfreq, labels: Sequence[str], units: Sequence[str] | str | None = "V",
           types: Sequence[str] | None = None, start: _dt.datetime | None = None, description: str = "",
           patient: dict | None = None, events: Iterable | None = None) -> "Recording":
    """Writes a native recording from arrays and opens it.

    ``data``: a 2-D array (channels x samples) or a list of 1-D arrays (one per channel, each
    at its own rate); ``sfreq``: one rate or one per channel (whole hertz; each rate must give a
    whole number of samples per 64-sample record of the fastest); ``units``: one or one per
    channel ("V" by default: the data are volts); ``types``: trace types ("EEG", "EOG", "EMG",
    "ECG", "SpO2" ... or MNE's lower-case names).  Each channel's 16-bit calibration is fitted to
    the range of its data.  ``events``: (onset_s, duration_s, text) tuples or dicts with those
    keys (and "kind": "annotation" or "sleep_stage"); ``patient``: id1, id2, last_name,
    first_name, birth_date, sex, comment.
    """
    if isinstance(data, _np.ndarray) and data.ndim == 2:
        arrays = [_np.ascontiguousarray(row, dtype=_np.float32) for row in data]
    else:
        arrays = [_np.ascontiguousarray(_np.asarray(row), dtype=_np.float32) for row in data]
    n = len(arrays)
    rates = [float(sfreq)] * n if _np.isscalar(sfreq) else [float(f) for f in sfreq]
    if isinstance(units, str) or units is None:
        units = [units or "V"] * n
    reverse = {v: k for k, v in _MNE_TYPES.items() if v not in ("resp", "bio", "stim")}
    types = [reverse.get(t, t) for t in (types or [""] * n)]
    start = start or _dt.datetime.now().replace(microsecond=0)
    if start.tzinfo is not None:
        start = start.astimezone().replace(tzinfo=None)
    stamp = start.strftime("%Y-%m-%dT%H:%M:%S") + f".{start.microsecond // 1000:03d}"
    items = []
    for e in events or []:
        if isinstance(e, dict):
            items.append((float(e["onset_s"]), float(e.get("duration_s", 0.0)), str(e.get("description", e.get("name", ""))),
                          str(e.get("kind", "annotation"))))
        else:
            onset, duration, text = e[:3]
            items.append((float(onset), float(duration), str(text), str(e[3]) if len(e) > 3 else "annotation"))
    fields = {k: (v.strftime("%Y-%m-%d") if isinstance(v, (_dt.date, _dt.datetime)) else str(v))
              for k, v in (patient or {}).items()}
    _core.create(str(path), [a.tolist() for a in arrays], rates, [str(x) for x in labels], [str(u) for u in units],
                 [str(t) for t in types], stamp, description, fields, items)
    return open(path)


def export(recording, out, montage: str | None = None, channels: Sequence[str] | None = None,
           resample: bool = False) -> list[str]:
    """Writes an open recording (or the recording at a path) as ``out``, its format chosen by name."""
    if isinstance(recording, Recording):
        return recording.export(out, montage=montage, channels=channels, resample=resample)
    return convert(recording, out, montage=montage, channels=channels, resample=resample)


def convert(source, out, montage: str | None = None, channels: Sequence[str] | None = None,
            resample: bool = False) -> list[str]:
    """Converts the recording at ``source`` into ``out`` (EDF+, BDF+ or native, by its name)."""
    return _core.convert(str(source), str(out), montage or "", list(channels or []), bool(resample))
