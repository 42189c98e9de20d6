// sigfile._core: the bindings of the Python module.  The package
// (python/sigfile/__init__.py) gives them their Python shape: argument
// handling, seconds and labels, numpy and pandas objects, MNE conversion.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <string>
#include <vector>

#include "Create.h"
#include "Recording.h"
#include "platform/Messages.h"
#include "sigfile/FormatDriver.h"
#include "sigfile/Resampler.h"
#include "spectral/Fft.h"

namespace py = pybind11;
using namespace sigfile_python;

namespace {

py::dict ChannelDict(const ChannelSpec& spec) {
    py::dict d;
    d["label"] = spec.label;
    d["montage_label"] = spec.alias;
    d["frequency"] = spec.frequency;
    d["samples_per_record"] = spec.samples;
    d["type"] = spec.type;
    d["unit"] = spec.unitName;
    d["unit_code"] = spec.unit;
    d["type_name"] = spec.typeName;
    return d;
}

CSigFileCopyOptions CopyOptions(const std::string& montage, const std::vector<std::string>& channels, bool resample,
                                std::vector<std::string>* notes) {
    CSigFileCopyOptions options;
    options.montage = montage;
    options.channels = channels;
    options.resample = resample;
    options.notes = notes;
    return options;
}

// Runs a create-copy; raises with the converter's own message.
std::vector<std::string> RunCopy(const std::string& out, const std::function<int(std::string*)>& copy) {
    std::string error;
    TakeCapturedMessages();
    int ok;
    {
        py::gil_scoped_release unlocked;
        ok = copy(&error);
    }
    if (!ok) {
        const std::string shown = TakeCapturedMessages();
        throw LibraryError{GetLastError() ? GetLastError() : ERROR_WRITE_FAULT,
                           error.empty() ? (shown.empty() ? Text(IDS_PY_WRITE_FAILED, out.c_str()) : shown) : error};
    }
    return {};
}

// Spectra of consecutive epochs of equally sampled channels: power of each
// bin (the library's FFT, tapered and scaled), shape channels x epochs x bins.
py::array_t<float> Spectra(py::array_t<float, py::array::c_style | py::array::forcecast> data, double rate,
                           double epoch, unsigned taper, unsigned detrend) {
    if (data.ndim() != 2) throw LibraryError{ERROR_INVALID_PARAMETER, Text(IDS_PY_ARRAY_SHAPE)};
    const size_t channels = size_t(data.shape(0)), samples = size_t(data.shape(1));
    if (channels == 0 || channels > size_t(CFftFactory::kMaxChannels))
        throw LibraryError{ERROR_INVALID_PARAMETER, Text(IDS_PY_SPECTRUM_CHANNELS)};
    if (rate < 1 || rate > double(CFftFactory::kMaxFrequency) || rate != double(long(rate)) || taper > 4 || detrend > 2)
        throw LibraryError{ERROR_INVALID_PARAMETER, Text(IDS_PY_SPECTRUM_OPTION)};
    CFftFactory factory(epoch, WORD(detrend), WORD(taper));
    for (size_t c = 0; c < channels; ++c)
        if (!factory.AddChannel(WORD(c), WORD(rate)))
            throw LibraryError{ERROR_INVALID_PARAMETER, Text(IDS_PY_FFT_LENGTH)};
    const unsigned length = factory.GetFftLen(0);
    const size_t epochs = samples / length;
    std::unique_ptr<CFftRec> fft(factory.CreateCompatibleFftRec());
    const unsigned bins = fft->GetNumFreq(0);
    py::array_t<float> out({py::ssize_t(channels), py::ssize_t(epochs), py::ssize_t(bins)});
    float* o = out.mutable_data();
    const float* in = data.data();
    CFmtSigRec record(unsigned(channels), length);
    const CFmtSigRec* records[1] = {&record};
    for (size_t e = 0; e < epochs; ++e) {
        for (size_t c = 0; c < channels; ++c)
            std::copy(in + c * samples + e * length, in + c * samples + (e + 1) * length, record.GetAt(unsigned(c)));
        if (!factory.Transform(0.0, records, 1, *fft)) throw LibraryError{ERROR_GEN_FAILURE, Text(IDS_PY_FFT_FAILED)};
        for (size_t c = 0; c < channels; ++c) {
            const CComplex* values = fft->GetAt(unsigned(c));
            for (unsigned b = 0; b < bins; ++b) o[(c * epochs + e) * bins + b] = values[b].Power();
        }
    }
    return out;
}

py::array_t<float> Resample(py::array_t<float, py::array::c_style | py::array::forcecast> data, double inRate,
                            double outRate) {
    if (data.ndim() != 2 || !(inRate > 0) || !(outRate > 0))
        throw LibraryError{ERROR_INVALID_PARAMETER, Text(IDS_PY_RESAMPLE)};
    const size_t channels = size_t(data.shape(0)), samples = size_t(data.shape(1));
    const size_t outSamples = size_t(std::ceil(double(samples) * outRate / inRate - 1e-9));
    py::array_t<float> out({py::ssize_t(channels), py::ssize_t(outSamples)});
    float* o = out.mutable_data();
    const float* in = data.data();
    py::gil_scoped_release unlocked;
    std::vector<double> x(samples), y;
    for (size_t c = 0; c < channels; ++c) {
        std::copy(in + c * samples, in + (c + 1) * samples, x.begin());
        y.clear();
        CResampler resampler(inRate, outRate);
        resampler.Push(x.data(), x.size(), y);
        resampler.Finish(y);
        for (size_t k = 0; k < outSamples; ++k) o[c * outSamples + k] = k < y.size() ? float(y[k]) : float(y.back());
    }
    return out;
}

}  // namespace

PYBIND11_MODULE(_core, m) {
    m.doc() = "Bindings of the sigfile library (use the sigfile package).";
    InstallMessageCapture();

    static py::exception<LibraryError> error(m, "Error", PyExc_RuntimeError);
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const LibraryError& e) {
            py::object instance = py::reinterpret_borrow<py::object>(error.ptr())(e.message);
            instance.attr("code") = e.code;
            instance.attr("message") = e.message;
            PyErr_SetObject(error.ptr(), instance.ptr());
        }
    });

    py::class_<Recording>(m, "Recording")
        .def(py::init<const std::string&, bool>(), py::arg("path"), py::arg("read_only") = true)
        .def("close", &Recording::Close)
        .def_property_readonly("closed", &Recording::IsClosed)
        .def_property_readonly("path", &Recording::GetPath)
        .def("info_json", &Recording::InfoJson)
        .def("events_json", &Recording::EventsJson)
        .def("start_iso", &Recording::StartIso)
        .def("record_duration", &Recording::RecordDuration)
        .def("num_records", &Recording::NumRecords)
        .def("channels", [](const Recording& r, const std::string& montage) {
            py::list list;
            for (const ChannelSpec& spec : r.Channels(montage)) list.append(ChannelDict(spec));
            return list;
        }, py::arg("montage") = "")
        .def("read", &Recording::Read, py::arg("channels"), py::arg("first"), py::arg("count"), py::arg("volts"),
             py::arg("montage") = "")
        .def("read_groups", [](Recording& r, const std::vector<std::tuple<std::vector<unsigned>, long long, long long>>& groups,
                               bool volts, const std::string& montage) {
            std::vector<Recording::Group> list;
            for (const auto& [channels, first, count] : groups) list.push_back({channels, first, count});
            return r.ReadGroups(list, volts, montage);
        }, py::arg("groups"), py::arg("volts"), py::arg("montage") = "")
        .def("export", [](Recording& r, const std::string& out, const std::string& montage,
                          const std::vector<std::string>& channels, bool resample) {
            std::vector<std::string> notes;
            CSigFile& file = r.File();
            RunCopy(out, [&](std::string* e) {
                return CreateSigFileCopy(&file, out.c_str(), CopyOptions(montage, channels, resample, &notes), e);
            });
            return notes;
        }, py::arg("out"), py::arg("montage") = "", py::arg("channels") = std::vector<std::string>(),
           py::arg("resample") = false);

    m.def("convert", [](const std::string& in, const std::string& out, const std::string& montage,
                        const std::vector<std::string>& channels, bool resample) {
        std::vector<std::string> notes;
        RunCopy(out, [&](std::string* e) {
            return ConvertSigFile(in.c_str(), out.c_str(), CopyOptions(montage, channels, resample, &notes), e);
        });
        return notes;
    }, py::arg("source"), py::arg("out"), py::arg("montage") = "", py::arg("channels") = std::vector<std::string>(),
       py::arg("resample") = false);

    m.def("create", [](const std::string& path, const std::vector<std::vector<float>>& data,
                       const std::vector<double>& rates, const std::vector<std::string>& labels,
                       const std::vector<std::string>& units, const std::vector<std::string>& types,
                       const std::string& start, const std::string& description,
                       const std::map<std::string, std::string>& patient,
                       const std::vector<std::tuple<double, double, std::string, std::string>>& events) {
        CreateRequest rq{path, data, rates, labels, units, types, start, description, patient, {}};
        for (const auto& [onset, duration, text, kind] : events) rq.events.push_back({onset, duration, text, kind});
        py::gil_scoped_release unlocked;
        CreateRecording(rq);
    });

    // Texts the Python layer raises itself, by name.
    py::dict messages;
    messages["unknown_channel"] = LoadResString(IDS_PY_UNKNOWN_CHANNEL);
    messages["closed"] = LoadResString(IDS_PY_CLOSED);
    messages["mixed_rates"] = LoadResString(IDS_PY_MIXED_RATES);
    messages["time_range"] = LoadResString(IDS_PY_TIME_RANGE);
    messages["no_channels"] = LoadResString(IDS_PY_NO_CHANNELS);
    m.attr("messages") = messages;

    m.def("format_of", [](const std::string& path) {
        const unsigned f = GetSigFileFormat(path.c_str());
        return py::make_tuple(f, GetSigFileFormatName(f));
    });
    m.def("spectra", &Spectra, py::arg("data"), py::arg("rate"), py::arg("epoch"), py::arg("taper"),
          py::arg("detrend"));
    m.def("resample", &Resample, py::arg("data"), py::arg("in_rate"), py::arg("out_rate"));
}
