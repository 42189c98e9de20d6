// Text helpers of the EDF family: numbers of fixed width, identification
// subfields, dates and time-stamped annotation lists.  Numbers go through
// std::to_chars / std::from_chars so that the decimal point is '.' whatever
// the process locale says.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "platform/Strings.h"
#include "formats/edf/Edf.h"

namespace edf {
namespace {

const char* const kMonths[12] = {"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                 "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};

std::string Fixed(double value, int decimals) {
    char buf[400];
    auto res = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed, decimals);
    if (res.ec != std::errc()) return std::string();
    std::string s(buf, res.ptr);
    if (s.find('.') != std::string::npos) {
        while (s.back() == '0') s.pop_back();
        if (s.back() == '.') s.pop_back();
    }
    if (s == "-0") s = "0";
    return s;
}

std::string Trim(const std::string& s) {
    size_t b = s.find_first_not_of(' ');
    if (b == std::string::npos) return std::string();
    size_t e = s.find_last_not_of(' ');
    return s.substr(b, e - b + 1);
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Parses [sign] digits [. digits] (at least one digit) over the whole text.
bool ParseDecimal(const std::string& t, bool allowSign, double& value) {
    size_t i = 0;
    if (i < t.size() && (t[i] == '+' || t[i] == '-')) {
        if (!allowSign) return false;
        ++i;
    }
    size_t digits = 0;
    bool point = false;
    for (size_t j = i; j < t.size(); ++j) {
        if (IsDigit(t[j])) ++digits;
        else if (t[j] == '.' && !point) point = true;
        else return false;
    }
    if (digits == 0) return false;
    size_t start = (i > 0 && t[0] == '+') ? 1 : 0;  // from_chars refuses '+'
    auto res = std::from_chars(t.data() + start, t.data() + t.size(), value, std::chars_format::fixed);
    return res.ec == std::errc() && res.ptr == t.data() + t.size() && std::isfinite(value);
}

std::string FromSubfield(const std::string& s) {
    if (s == "X") return std::string();
    std::string out = s;
    std::replace(out.begin(), out.end(), '_', ' ');
    return out;
}

std::string JoinRest(const std::vector<std::string>& words, size_t from) {
    std::string out;
    for (size_t i = from; i < words.size(); ++i) {
        if (!out.empty()) out += ' ';
        out += words[i];
    }
    return out;
}

}  // namespace

bool FormatEdfNumber(double value, int width, std::string& text, double scale) {
    if (!std::isfinite(value)) return false;
    double tolerance = 1e-6 * (scale > 0 ? scale : std::fabs(value));
    for (int decimals = width; decimals >= 0; --decimals) {
        std::string s = Fixed(value, decimals);
        if (s.size() > size_t(width)) {
            // "0.5" may still fit as ".5".
            if (s.rfind("0.", 0) == 0) s.erase(0, 1);
            else if (s.rfind("-0.", 0) == 0) s.erase(1, 1);
        }
        if (s.size() > size_t(width)) continue;
        double back = 0;
        if (!ParseEdfNumber(s, back)) return false;
        if (std::fabs(back - value) > tolerance) return false;
        text = s;
        return true;
    }
    return false;
}

double RoundEdfNumber(double value, int width) {
    if (!std::isfinite(value)) return std::nan("");
    for (int decimals = width; decimals >= 0; --decimals) {
        std::string s = Fixed(value, decimals);
        if (s.size() > size_t(width)) {
            if (s.rfind("0.", 0) == 0) s.erase(0, 1);
            else if (s.rfind("-0.", 0) == 0) s.erase(1, 1);
        }
        if (s.size() > size_t(width)) continue;
        double back = 0;
        if (ParseEdfNumber(s, back)) return back;
    }
    return std::nan("");
}

bool ParseEdfNumber(const std::string& field, double& value) {
    return ParseDecimal(Trim(field), true, value);
}

bool ParseEdfInteger(const std::string& field, LONGLONG& value) {
    std::string t = Trim(field);
    size_t i = (!t.empty() && (t[0] == '+' || t[0] == '-')) ? 1 : 0;
    if (i == t.size() || t.size() - i > 18) return false;
    for (size_t j = i; j < t.size(); ++j)
        if (!IsDigit(t[j])) return false;
    size_t start = t[0] == '+' ? 1 : 0;
    auto res = std::from_chars(t.data() + start, t.data() + t.size(), value);
    return res.ec == std::errc() && res.ptr == t.data() + t.size();
}

std::string EdfAsciiField(const std::string& utf8, size_t width) {
    std::string ascii;
    for (char c : TransliterateAscii(utf8))
        if (c >= 0x20 && c < 0x7F) ascii += c;
    if (ascii.size() > width) ascii.resize(width);
    ascii.resize(width, ' ');
    return ascii;
}

std::string EdfSubfield(const std::string& utf8) {
    std::string s = EdfAsciiField(utf8, 80);
    while (!s.empty() && s.back() == ' ') s.pop_back();
    while (!s.empty() && s.front() == ' ') s.erase(0, 1);
    std::replace(s.begin(), s.end(), ' ', '_');
    return s.empty() ? std::string("X") : s;
}

std::string EdfSubfieldDate(int year, int month, int day) {
    if (year <= 0 || month < 1 || month > 12 || day < 1 || day > 31) return "X";
    return StrFormat("%02d-%s-%04d", day, kMonths[month - 1], year);
}

bool ParseEdfSubfieldDate(const std::string& text, int& year, int& month, int& day) {
    if (text.size() != 11 || text[2] != '-' || text[6] != '-') return false;
    for (int i : {0, 1, 7, 8, 9, 10})
        if (!IsDigit(text[i])) return false;
    std::string mon = ToUpperAscii(text.substr(3, 3));
    int m = 0;
    for (int i = 0; i < 12; ++i)
        if (mon == kMonths[i]) m = i + 1;
    if (m == 0) return false;
    int d = (text[0] - '0') * 10 + (text[1] - '0');
    if (d < 1 || d > 31) return false;
    year = std::stoi(text.substr(7, 4));
    month = m;
    day = d;
    return true;
}

std::string BuildPatientField(const EdfPatient& p) {
    std::string sex = p.sex == 'M' || p.sex == 'F' ? std::string(1, p.sex) : std::string("X");
    std::string s = EdfSubfield(p.code) + " " + sex + " " + EdfSubfieldDate(p.birthYear, p.birthMonth, p.birthDay) +
                    " " + EdfSubfield(p.name);
    if (!p.additional.empty()) s += " " + p.additional;
    return EdfAsciiField(s, 80);
}

std::string BuildRecordingField(const EdfRecordingId& r, const CSDateTime& start) {
    std::string s = "Startdate " + EdfSubfieldDate(start.GetYear(), start.GetMonth(), start.GetDay()) + " " +
                    EdfSubfield(r.adminCode) + " " + EdfSubfield(r.technician) + " " + EdfSubfield(r.equipment);
    if (!r.additional.empty()) s += " " + r.additional;
    return EdfAsciiField(s, 80);
}

bool ParsePatientField(const std::string& field, EdfPatient& patient) {
    std::vector<std::string> w = SplitWords(field, " ");
    if (w.size() < 4) return false;
    EdfPatient p;
    p.code = FromSubfield(w[0]);
    if (w[1] == "M" || w[1] == "F") p.sex = w[1][0];
    else if (w[1] != "X") return false;
    if (w[2] != "X" && !ParseEdfSubfieldDate(w[2], p.birthYear, p.birthMonth, p.birthDay)) return false;
    p.name = FromSubfield(w[3]);
    p.additional = JoinRest(w, 4);
    patient = p;
    return true;
}

bool ParseRecordingField(const std::string& field, EdfRecordingId& recording, int& year, int& month, int& day) {
    std::vector<std::string> w = SplitWords(field, " ");
    if (w.size() < 5 || w[0] != "Startdate") return false;
    year = month = day = 0;
    if (w[1] != "X" && !ParseEdfSubfieldDate(w[1], year, month, day)) return false;
    recording.adminCode = FromSubfield(w[2]);
    recording.technician = FromSubfield(w[3]);
    recording.equipment = FromSubfield(w[4]);
    recording.additional = JoinRest(w, 5);
    return true;
}

std::string FormatTalTime(double seconds, bool sign) {
    std::string s = Fixed(seconds, 6);
    if (sign && s[0] != '-') s.insert(0, 1, '+');
    return s;
}

std::string BuildTal(double onset, const std::optional<double>& duration, const std::string* text) {
    std::string tal = FormatTalTime(onset, true);
    if (duration) tal += '\x15' + FormatTalTime(*duration, false);
    tal += '\x14';
    if (text) {
        // The separators cannot occur inside a text.
        for (char c : *text)
            if (c != '\x00' && c != '\x14' && c != '\x15') tal += c;
    }
    tal += '\x14';
    tal += '\x00';
    return tal;
}

std::string BuildTimeKeepingTal(double recordStart) { return BuildTal(recordStart, std::nullopt, nullptr); }

bool ParseTals(const std::string& input, bool timeKeeping, double& recordStart,
               std::vector<EdfAnnotation>& annotations, std::string& error, bool* repaired) {
    // Some writers omit the 0x00 that ends the time-keeping TAL when another
    // TAL follows it in the same record ("+0\x14\x14+0\x14text\x14\x00"):
    // the onset right after the empty text starts a new TAL.
    std::string repairedBytes;
    const std::string* source = &input;
    if (timeKeeping) {
        const size_t sep = input.find("\x14\x14");
        const size_t nul = input.find('\0');
        if (sep != std::string::npos && (nul == std::string::npos || sep < nul) && sep + 3 < input.size() &&
            (input[sep + 2] == '+' || input[sep + 2] == '-') && input[sep + 3] >= '0' && input[sep + 3] <= '9') {
            repairedBytes = input.substr(0, sep + 2) + '\0' + input.substr(sep + 2);
            source = &repairedBytes;
            if (repaired) *repaired = true;
        }
    }
    const std::string& bytes = *source;
    size_t pos = 0;
    bool first = true;
    while (pos < bytes.size() && bytes[pos] != '\0') {
        size_t end = bytes.find('\0', pos);
        if (end == std::string::npos) {
            error = EdfMsg(IDS_EDF_T_NO_NUL);
            return false;
        }
        std::string tal = bytes.substr(pos, end - pos);
        pos = end + 1;
        size_t sep = tal.find('\x14');
        if (sep == std::string::npos) {
            error = EdfMsg(IDS_EDF_T_NO_SEPARATOR);
            return false;
        }
        std::string times = tal.substr(0, sep);
        std::string onsetText = times, durationText;
        size_t dsep = times.find('\x15');
        if (dsep != std::string::npos) {
            onsetText = times.substr(0, dsep);
            durationText = times.substr(dsep + 1);
        }
        EdfAnnotation a;
        if (onsetText.empty() || (onsetText[0] != '+' && onsetText[0] != '-') ||
            !ParseDecimal(onsetText, true, a.onset)) {
            error = EdfMsg(IDS_EDF_T_ONSET, TransliterateAscii(onsetText).c_str());
            return false;
        }
        if (dsep != std::string::npos) {
            double d = 0;
            if (!ParseDecimal(durationText, false, d)) {
                error = EdfMsg(IDS_EDF_T_DURATION, TransliterateAscii(durationText).c_str());
                return false;
            }
            a.duration = d;
        }
        if (tal.back() != '\x14') {
            error = EdfMsg(IDS_EDF_T_TEXT_END);
            return false;
        }
        // The texts between separators; the one after the last 0x14 is empty.
        std::vector<std::string> texts;
        size_t b = sep + 1;
        while (b < tal.size()) {
            size_t e = tal.find('\x14', b);
            std::string t = tal.substr(b, e - b);
            if (t.find('\x15') != std::string::npos) {
                error = EdfMsg(IDS_EDF_T_TEXT_0X15);
                return false;
            }
            texts.push_back(t);
            b = e + 1;
        }
        size_t from = 0;
        if (first && timeKeeping) {
            if (texts.empty() || !texts[0].empty()) {
                error = EdfMsg(IDS_EDF_T_FIRST);
                return false;
            }
            recordStart = a.onset;
            from = 1;
        }
        for (size_t i = from; i < texts.size(); ++i) {
            if (texts[i].empty()) continue;
            EdfAnnotation ann = a;
            // Texts are UTF-8; some writers put Windows-1252 instead.
            ann.text = IsUtf8(texts[i]) ? texts[i] : Cp1252ToUtf8(texts[i]);
            annotations.push_back(std::move(ann));
        }
        first = false;
    }
    if (first && timeKeeping) {
        error = EdfMsg(IDS_EDF_T_NONE);
        return false;
    }
    return true;
}

EdfAnnotationPlan PlanAnnotations(const std::vector<double>& recordStarts,
                                  const std::vector<EdfAnnotation>& annotations, double timeOffset) {
    EdfAnnotationPlan plan;
    const size_t records = recordStarts.size();
    plan.perRecord.resize(records);
    if (records == 0) return plan;
    std::vector<size_t> timeKeeping(records);
    for (size_t i = 0; i < records; ++i) timeKeeping[i] = BuildTimeKeepingTal(recordStarts[i] + timeOffset).size();

    // Each annotation's home record (the last one starting at or before its
    // onset) and TAL size, in home order.
    struct Item {
        size_t home, bytes, index;
    };
    std::vector<Item> items;
    std::vector<size_t> atHome(timeKeeping);
    for (size_t a = 0; a < annotations.size(); ++a) {
        const EdfAnnotation& ann = annotations[a];
        auto it = std::upper_bound(recordStarts.begin(), recordStarts.end(), ann.onset);
        size_t home = it == recordStarts.begin() ? 0 : size_t(it - recordStarts.begin()) - 1;
        size_t bytes = BuildTal(ann.onset + timeOffset, ann.duration, &ann.text).size();
        items.push_back({home, bytes, a});
        atHome[home] += bytes;
    }
    std::stable_sort(items.begin(), items.end(), [](const Item& x, const Item& y) { return x.home < y.home; });

    // Fills the records in order, each up to `room` bytes, an annotation going
    // into its home record or, when that is full, a later one.
    auto place = [&](size_t room, bool keep) {
        size_t next = 0, first = 0;  // items[first, next) wait for room
        for (size_t r = 0; r < records; ++r) {
            while (next < items.size() && items[next].home == r) ++next;
            size_t used = timeKeeping[r];
            if (used > room) return false;
            while (first < next && used + items[first].bytes <= room) {
                used += items[first].bytes;
                if (keep) plan.perRecord[r].push_back(annotations[items[first].index]);
                ++first;
            }
        }
        return first == items.size();
    };
    // Every annotation in its home record always fits the busiest home
    // record; spreading a burst of annotations over the following records
    // may need much less room in every record of the file.
    size_t lo = *std::max_element(timeKeeping.begin(), timeKeeping.end());
    size_t hi = *std::max_element(atHome.begin(), atHome.end());
    while (lo < hi) {
        size_t mid = lo + (hi - lo) / 2;
        if (place(mid, false)) hi = mid;
        else lo = mid + 1;
    }
    place(hi, true);
    plan.bytesPerRecord = hi;
    return plan;
}

double EdfStartFraction(const CSDateTime& start) {
    int y, mo, d, h, mi, s, ms;
    start.GetParts(y, mo, d, h, mi, s, ms);
    return ms / 1000.0;
}

bool FitPhysicalUnit(EdfSignal& signal) {
    // Only volts are rescaled: other units keep their meaning only as given.
    static const char* const kVolts[] = {"V", "mV", "uV", "nV"};
    int level = -1;
    for (int i = 0; i < 4; ++i)
        if (signal.unit == kVolts[i]) level = i;
    double factor = 1;
    for (int l = level < 0 ? 0 : level; l < 4; ++l, factor *= 1000) {
        double lo = signal.physicalMin * factor, hi = signal.physicalMax * factor;
        std::string a, b;
        double range = std::fabs(hi - lo);
        if (FormatEdfNumber(lo, 8, a, range) && FormatEdfNumber(hi, 8, b, range)) {
            signal.physicalMin = lo;
            signal.physicalMax = hi;
            if (level >= 0) signal.unit = kVolts[l];
            return true;
        }
        if (level < 0) return false;
    }
    return false;
}

int RecordsPerEdfRecord(int samples, double baseFrequency) {
    if (samples <= 0 || !(baseFrequency > 0)) return 0;
    for (int k = 1; k <= 1000; ++k) {
        double duration = double(k) * samples / baseFrequency;
        std::string text;
        if (!FormatEdfNumber(duration, 8, text)) continue;
        double back = 0;
        ParseEdfNumber(text, back);
        if (std::fabs(back * baseFrequency - double(k) * samples) <= 1e-12 * k * samples) return k;
    }
    return 0;
}

}  // namespace edf
