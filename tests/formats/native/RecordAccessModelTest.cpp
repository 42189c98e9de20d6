// Record access of native recordings checked against a model: random
// sequences of writes, rewrites, reads (raw, formatted, volts, bytes) in any
// order, flushes, closes and reopens (read-write and read-only), over record
// sizes on both sides of the read-ahead window.  Every read must give what
// was last written to that record, in the same process and after reopening.
//
// SIGFILE_MODEL_SEEDS=N runs N sequences per shape instead of the CI's few.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "records/SigCoDec.h"
#include "support/SmallRecording.h"
#include "support/TestSupport.h"

using namespace testsupport;

namespace {

struct Shape {
    std::vector<unsigned> frequencies;
    long maxRecords;
};

int SeedCount() {
    const char* env = std::getenv("SIGFILE_MODEL_SEEDS");
    return env ? std::max(1, std::atoi(env)) : 12;
}

class Model {
public:
    Model(const std::string& name, const Shape& shape, unsigned seed) : m_name(name), m_shape(shape), m_random(seed) {}

    // Runs `steps` random operations; false (with a message) at the first
    // read that disagrees with the model.
    bool Run(int steps, std::string& why) {
        auto d = DescribeRecording(m_shape.frequencies);
        long error = 0;
        m_file.reset(CreateRecording(m_name, d, &error));
        if (!m_file) return Fail(why, "create failed");
        m_readOnly = false;
        for (int step = 0; step < steps; ++step) {
            const int op = Pick(100);
            bool ok = true;
            if (op < 30) ok = WriteRun(why);
            else if (op < 70) ok = ReadRun(why);
            else if (op < 80) ok = m_readOnly || m_file->Flush() != 0;
            else if (op < 88) ok = Reopen(false, why);
            else if (op < 93) ok = Reopen(true, why);
            else ok = ReadOne(Pick(int(m_records.size()) + 1) - 1, why);  // -1: before the start
            if (!ok) {
                why = "step " + std::to_string(step) + ": " + why;
                return false;
            }
        }
        m_file.reset();
        // Whatever was flushed or closed is what a new open finds.
        return Reopen(true, why) && ReadAll(why);
    }

private:
    int Pick(int n) { return int(m_random() % unsigned(n)); }
    static bool Fail(std::string& why, const std::string& text) {
        why = text;
        return false;
    }

    // A run of records written forward or backward, rewriting or appending.
    bool WriteRun(std::string& why) {
        if (m_readOnly && !Reopen(false, why)) return false;
        const long count = long(m_records.size());
        const long room = m_shape.maxRecords - count;
        long first = Pick(int(count) + 1);
        long length = 1 + Pick(40);
        if (first + length > count + std::max(0L, room)) length = std::max(0L, count + room - first);
        if (length == 0) return true;
        const bool backward = Pick(2) == 0 && first + length <= count;
        std::unique_ptr<CRawSigRec> rec(m_file->CreateCompatibleRawSigRec());
        std::unique_ptr<CFmtSigRec> fmt(m_file->CreateCompatibleFmtSigRec());
        for (long k = 0; k < length; ++k) {
            const long r = backward ? first + length - 1 - k : first + k;
            if (r > long(m_records.size())) break;  // appends only at the end
            const unsigned stamp = m_random();
            for (unsigned c = 0; c < rec->GetNumChannels(); ++c)
                for (unsigned s = 0; s < rec->GetNumSamples(c); ++s)
                    rec->SetAt(c, s, short((stamp + c * 977 + s * 31) % 60000 - 30000));
            rec->SetTime(CSDateTime(2026, 1, 31, 22, 5, 0) + CSTimeSpan(r * 0.25));
            m_file->MoveTo(r);
            int ok = 0;
            // The same record through each write entry.
            switch (Pick(3)) {
                case 0: ok = m_file->Write(rec.get()); break;
                case 1:
                    m_file->GetCalibration()->Calibrate(rec.get(), fmt.get());
                    fmt->SetTime(rec->GetTime());
                    ok = m_file->Write(fmt.get());
                    break;
                default:
                    m_file->GetCalibration()->CalibrateAsVolts(rec.get(), fmt.get());
                    fmt->SetTime(rec->GetTime());
                    ok = m_file->WriteAsVolts(fmt.get());
                    break;
            }
            if (!ok) return Fail(why, "write of record " + std::to_string(r) + " failed");
            // What the file holds is what a read gives: decalibration may
            // move a formatted sample by rounding, so the model takes it
            // from a raw read right after the write, checked once against
            // the cache-free truth at the end.
            std::unique_ptr<CRawSigRec> back(m_file->CreateCompatibleRawSigRec());
            m_file->MoveTo(r);
            if (!m_file->Read(back.get())) return Fail(why, "read after write failed");
            std::vector<short> samples(back->GetData(), back->GetData() + back->GetTotalSamples());
            if (r == long(m_records.size())) m_records.push_back(samples);
            else m_records[size_t(r)] = samples;
        }
        return true;
    }

    bool ReadRun(std::string& why) {
        const long count = long(m_records.size());
        if (count == 0) return true;
        long first = Pick(int(count));
        long length = 1 + Pick(300);
        const bool backward = Pick(3) == 0;
        for (long k = 0; k < length; ++k) {
            const long r = backward ? first - k : first + k;
            if (r < 0 || r >= count) break;
            if (!ReadOne(r, why)) return false;
        }
        return true;
    }

    bool ReadOne(long r, std::string& why) {
        m_file->MoveTo(r);
        if (r < 0 || r >= long(m_records.size())) {
            std::unique_ptr<CRawSigRec> rec(m_file->CreateCompatibleRawSigRec());
            if (m_file->Read(rec.get())) return Fail(why, "read outside the recording succeeded");
            return true;
        }
        const std::vector<short>& want = m_records[size_t(r)];
        const std::string where = "record " + std::to_string(r);
        switch (Pick(4)) {
            case 0: {
                std::unique_ptr<CRawSigRec> rec(m_file->CreateCompatibleRawSigRec());
                if (!m_file->Read(rec.get())) return Fail(why, where + ": raw read failed");
                if (!std::equal(want.begin(), want.end(), rec->GetData())) return Fail(why, where + ": stale raw read");
                break;
            }
            case 1:
            case 2: {
                const bool volts = Pick(2) == 0;
                std::unique_ptr<CFmtSigRec> fmt(m_file->CreateCompatibleFmtSigRec());
                if (!(volts ? m_file->ReadAsVolts(fmt.get()) : m_file->Read(fmt.get())))
                    return Fail(why, where + ": formatted read failed");
                std::unique_ptr<CRawSigRec> shape(m_file->CreateCompatibleRawSigRec());
                std::copy(want.begin(), want.end(), shape->GetData());
                std::unique_ptr<CFmtSigRec> expected(m_file->CreateCompatibleFmtSigRec());
                if (volts) m_file->GetCalibration()->CalibrateAsVolts(shape.get(), expected.get());
                else m_file->GetCalibration()->Calibrate(shape.get(), expected.get());
                if (std::memcmp(expected->GetData(), fmt->GetData(), want.size() * sizeof(float)) != 0)
                    return Fail(why, where + ": stale formatted read");
                break;
            }
            default: {
                CByteArray bytes;
                if (!m_file->Read(&bytes)) return Fail(why, where + ": byte read failed");
                if (size_t(bytes.GetSize()) != 8 + want.size() * 2 ||
                    std::memcmp(bytes.GetData() + 8, want.data(), want.size() * 2) != 0)
                    return Fail(why, where + ": stale stored bytes");
                break;
            }
        }
        return true;
    }

    bool ReadAll(std::string& why) {
        if (m_file->GetNumRecords() != long(m_records.size()))
            return Fail(why, "record count " + std::to_string(m_file->GetNumRecords()) + " instead of " +
                                 std::to_string(m_records.size()));
        for (long r = 0; r < long(m_records.size()); ++r)
            if (!ReadOne(r, why)) return false;
        return true;
    }

    bool Reopen(bool readOnly, std::string& why) {
        if (m_file && !m_file->Close()) return Fail(why, "close failed");
        m_file.reset();
        long error = 0;
        m_file.reset(CSigFile::Open(m_name.c_str(), readOnly ? 1 : 0, &error));
        if (!m_file) return Fail(why, "reopen failed: " + std::to_string(error));
        m_readOnly = readOnly;
        if (m_file->GetNumRecords() != long(m_records.size()))
            return Fail(why, "reopened with " + std::to_string(m_file->GetNumRecords()) + " records instead of " +
                                 std::to_string(m_records.size()));
        return true;
    }

    std::string m_name;
    Shape m_shape;
    std::mt19937 m_random;
    CSigFilePtr m_file;
    bool m_readOnly = false;
    std::vector<std::vector<short>> m_records;  // what each record holds
};

}  // namespace

// Record sizes of 392 bytes (channels at three rates, 668 records per
// read-ahead block), 2440 bytes (107 per block) and 136 bytes (the whole
// recording in one block).
TEST(RecordAccessModel, EveryReadGivesWhatWasLastWritten) {
    const std::vector<Shape> shapes = {{{256, 256, 128, 64, 64}, 1500},
                                       {std::vector<unsigned>(19, 256), 600},
                                       {{256}, 1500}};
    for (size_t s = 0; s < shapes.size(); ++s) {
        for (int seed = 0; seed < SeedCount(); ++seed) {
            TempDir dir;
            Model model(dir / "model.SIG", shapes[s], unsigned(seed * 7919 + s));
            std::string why;
            ASSERT_TRUE(model.Run(150, why)) << "shape " << s << ", seed " << seed << ": " << why;
        }
    }
}
