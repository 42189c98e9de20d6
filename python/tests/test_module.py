"""The Python module against MNE-Python's own readers and against itself."""
import datetime as dt

import numpy as np
import pytest

import sigfile
from conftest import realworld_edf

mne = pytest.importorskip("mne")


def mne_read(path):
    reader = mne.io.read_raw_bdf if str(path).lower().endswith(".bdf") else mne.io.read_raw_edf
    return reader(str(path), preload=True, verbose="error")


def test_read_matches_mne_for_each_rate_group(demo_night):
    _, edf = demo_night
    rec = sigfile.open(edf)
    raw = mne_read(edf)
    for rate, labels in rec.rate_groups.items():
        ours = rec.read(channels=labels)
        assert ours.dtype == np.float32 and ours.shape[0] == len(labels)
        if rate == max(rec.rate_groups):
            theirs = raw.get_data(picks=labels)
            assert ours.shape == theirs.shape
            step = np.ptp(theirs, axis=1, keepdims=True) / 65535 + 1e-12
            assert np.all(np.abs(ours - theirs) <= step)


@pytest.mark.parametrize("path", realworld_edf(["mne_test.edf", "mne_test.bdf", "pyedflib_test_generator.edf",
                                                 "mnetd_test_reduced.edf"]))
def test_read_matches_mne_on_files_of_other_writers(path):
    rec = sigfile.open(path)
    raw = mne_read(path)
    rate, labels = max(rec.rate_groups.items(), key=lambda item: len(item[1]))
    labels = [l for l in labels if l in raw.ch_names and raw.info["sfreq"] == rate][:8]
    if not labels:
        pytest.skip("no channel read at MNE's rate")
    ours = rec.read(start=0, stop=min(rec.duration, 10), channels=labels)
    theirs = raw.get_data(picks=labels)[:, :ours.shape[1]]
    scale = np.maximum(np.abs(theirs).max(axis=1, keepdims=True), 1e-12)
    assert np.allclose(ours, theirs, atol=1e-6 * scale.max(), rtol=1e-5)


def test_time_ranges_channels_and_montages(demo_night):
    sig, _ = demo_night
    with sigfile.open(sig) as rec:
        assert rec.montages == ["Bipolar", "Average"]
        whole = rec.read(channels=["Fp1", "F7", "C3"])
        part = rec.read(start=10.0, stop=12.5, channels=["Fp1", "F7", "C3"])
        assert part.shape == (3, 640)
        assert np.array_equal(part, whole[:, 2560:3200])
        by_index = rec.read(start=10.0, stop=12.5, channels=[0, 2])
        assert np.array_equal(by_index[1], rec.read(start=10.0, stop=12.5, channels=["F7"])[0])
        # A bipolar channel computed by the formula engine is the difference of its electrodes.
        bipolar = rec.read(start=10.0, stop=12.5, montage="Bipolar", channels=["FP1-F7"])
        assert np.allclose(bipolar[0], part[0] - part[1], atol=1e-9)
        microvolts = rec.read(start=10.0, stop=12.5, channels=["Fp1"], unit="uV")
        assert np.allclose(microvolts[0], part[0] * 1e6, rtol=1e-6)
        mixed = rec.read(start=0, stop=8, channels=["C3", "SpO2"], sfreq=256)
        assert mixed.shape == (2, 2048)
        spo2 = rec.read(start=0, stop=8, channels=["SpO2"])
        groups = rec.read_by_rate(start=0, stop=8)
        assert sorted(groups) == [4.0, 32.0, 128.0, 256.0]
        assert np.array_equal(groups[4.0][1], spo2) and groups[256.0][1].shape == (21, 2048)
        assert spo2.shape == (1, 32) and np.abs(mixed[1, ::64] - spo2[0]).max() < 1.0


def test_events_and_info_match_the_tool(demo_night):
    sig, _ = demo_night
    rec = sigfile.open(sig)
    info = rec.info
    assert info["format"] == 1 and info["records"] == 720 and len(info["groups"]) > 3
    events = rec.events
    assert len(events) == info["events"]
    stages = [e for e in events if e["group"] and e["group_id"] == "F4B8F3EE-8AC2-4EFC-BC86-2A55AF130A6C"]
    assert stages and all(e["duration_s"] == pytest.approx(30.0) for e in stages)
    frame = rec.events_frame()
    assert list(frame["onset_s"]) == [e["onset_s"] for e in events]


def test_create_then_open_round_trip(tmp_path):
    t = np.arange(256 * 20) / 256
    eeg = (40e-6 * np.sin(2 * np.pi * 10 * t)).astype(np.float32)
    eog = (200e-6 * np.cos(2 * np.pi * 1 * t[::2])).astype(np.float32)
    spo2 = np.linspace(90, 99, 20 * 4).astype(np.float32)
    start = dt.datetime(2026, 3, 1, 23, 15, 30)
    rec = sigfile.create(tmp_path / "made.sig", [eeg, eog, spo2], [256, 128, 4], ["C3", "LOC", "SpO2"],
                         units=["V", "V", "%"], types=["eeg", "eog", "SpO2"], start=start,
                         patient={"id1": "P-17", "last_name": "Gagnon", "birth_date": dt.date(1970, 5, 2)},
                         events=[(2.5, 1.0, "Artefact"), (0.0, 30.0, "W", "sleep_stage")])
    assert rec.start == start
    assert rec.info["patient"]["id1"] == "P-17" and rec.info["patient"]["last_name"] == "Gagnon"
    for labels, original in ((["C3"], eeg), (["LOC"], eog), (["SpO2"], spo2)):
        back = rec.read(channels=labels)[0, :original.size]
        step = np.ptp(original) / 65534
        assert np.abs(back - original).max() <= step * 0.51
    names = {(e["name"], round(e["onset_s"], 3), round(e["duration_s"], 3)) for e in rec.events}
    assert ("Artefact", 2.5, 1.0) in names and ("W", 0.0, 30.0) in names
    raw = rec.to_mne()
    assert raw.get_channel_types() == ["eeg", "eog", "bio"]
    assert raw.info["sfreq"] == 256
    assert "Artefact" in raw.annotations.description
    rec.close()


def test_to_mne_agrees_with_mnes_reader(demo_night):
    _, edf = demo_night
    ours = sigfile.open(edf).to_mne()
    theirs = mne_read(edf)
    assert ours.ch_names == theirs.ch_names
    assert ours.info["sfreq"] == theirs.info["sfreq"]
    assert ours.info["meas_date"] == theirs.info["meas_date"]
    eeg = [n for n, t in zip(ours.ch_names, ours.get_channel_types()) if t == "eeg"]
    assert len(eeg) >= 19
    a, b = ours.get_data(picks=eeg), theirs.get_data(picks=eeg)
    assert np.abs(a - b).max() <= np.ptp(b) / 65535 + 1e-12
    assert sorted(np.round(ours.annotations.onset, 3)) == sorted(np.round(theirs.annotations.onset, 3))
    assert sorted(ours.annotations.description) == sorted(theirs.annotations.description)


def test_spectrum_of_a_tone_peaks_at_its_frequency(tmp_path):
    t = np.arange(256 * 16) / 256
    rec = sigfile.create(tmp_path / "tone.sig", np.vstack([20e-6 * np.sin(2 * np.pi * 12 * t)]), 256, ["Cz"])
    freqs, times, power = rec.spectrum(epoch=2.0)
    assert power.shape == (1, 8, 256) and list(times) == [0, 2, 4, 6, 8, 10, 12, 14]
    assert freqs[np.argmax(power[0].mean(axis=0))] == pytest.approx(12.0)


def test_export_and_convert_reach_the_converters(demo_night, tmp_path):
    sig, _ = demo_night
    rec = sigfile.open(sig)
    rec.export(tmp_path / "out.edf")
    assert sigfile.format_of(tmp_path / "out.edf") == (6, "edf")
    sigfile.convert(tmp_path / "out.edf", tmp_path / "back.bdf")
    assert sigfile.format_of(tmp_path / "back.bdf") == (7, "bdf")
    sigfile.export(str(sig), tmp_path / "c3.sig", channels=["C3-REF", "C4-REF"])
    assert [c["label"] for c in sigfile.open(tmp_path / "c3.sig").channels] == ["C3-REF", "C4-REF"]


def test_failures_are_exceptions_with_code_and_french_text(demo_night, tmp_path):
    sig, _ = demo_night
    with pytest.raises(sigfile.Error) as missing:
        sigfile.open(tmp_path / "absent.sig")
    assert missing.value.code == 2 and "introuvable" in missing.value.message
    (tmp_path / "junk.edf").write_bytes(b"0       " + b"x" * 300)
    with pytest.raises(sigfile.Error):
        sigfile.open(tmp_path / "junk.edf")
    rec = sigfile.open(sig)
    with pytest.raises(sigfile.Error, match="Canal inconnu"):
        rec.read(channels=["T9"])
    with pytest.raises(sigfile.Error, match="fréquences différentes"):
        rec.read(channels=["C3", "SpO2"])
    with pytest.raises(sigfile.Error, match="hors de l'enregistrement"):
        rec.read(start=170, stop=200, channels=["C3"])
    with pytest.raises(sigfile.Error):
        rec.read(montage="Nope")
    with pytest.raises(sigfile.Error, match="entières"):
        sigfile.create(tmp_path / "bad.sig", [np.zeros(100)], [99.5], ["C3"])
    with pytest.raises(sigfile.Error):
        rec.export(tmp_path / "no" / "such" / "folder.edf")
    rec.close()
    with pytest.raises(sigfile.Error) as closed:
        rec.read()
    assert closed.value.code == 6
    with pytest.raises(sigfile.Error):
        _ = rec.events


@pytest.mark.parametrize("path", realworld_edf(["stag_SC4652EG-Hypnogram.edf", "mnetd_SC4001EC-Hypnogram.edf"]))
def test_a_hypnogram_has_events_and_refuses_signals_with_a_message(path):
    rec = sigfile.open(path)
    assert rec.channels == [] and rec.read().shape == (0, 0)
    stages = [e for e in rec.events if e["group_id"] == "F4B8F3EE-8AC2-4EFC-BC86-2A55AF130A6C"]
    assert stages and stages[0]["text"].startswith("Sleep stage")
    for call in (rec.to_mne, rec.spectrum):
        with pytest.raises(sigfile.Error, match="sans canal"):
            call()
