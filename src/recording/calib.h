// Calibration of a recording: converts the converter's 16-bit AD values to
// volts at the amplifier input and to each channel's "world" value in its
// own physical unit, and back.
//
// Two levels: a base calibration shared by every channel (AD minimum <-> volt
// minimum, AD maximum <-> volt maximum) and, per channel, two (volt, world)
// points from which the world values at the AD minimum and maximum are
// derived.  The calibration also carries the true sampling frequency and a
// table of position levels (the Bpos table) that it only stores.
//
// Archive form (WORD version 3): double frequency, WORD AD minimum, float volt
// minimum, WORD AD maximum, float volt maximum, WORD channel count, six
// per-channel blocks (point-1 AD, volt, world; point-2 AD, volt, world; 4
// bytes per channel each), WORD Bpos count, CWordArray thresholds,
// CStringArray names, CStringArray keys, CWordArray uids.  Version 1 has one
// extra WORD per channel before the point blocks; versions 1 and 2 have no
// Bpos table.  The derived values are rebuilt on loading, never stored.
#pragma once
#pragma GCC visibility push(default)  // public API: exported by the shared library

#include "platform/Archive.h"
#include "platform/Collections.h"
#include "platform/Object.h"
#include "platform/Types.h"

class CRawSigRec;
class CFmtSigRec;

class CCalibration : public CObject {
    DECLARE_SERIAL(CCalibration)
public:
    // The world-step table is fixed: a calibration serves at most this many
    // channels, and anything that would exceed it is refused.
    static constexpr unsigned kMaxChannels = 128;

    // Frequency 0, AD and volt ranges 0, no channels.
    CCalibration();
    // Same as Create.  Throws CInvalidArgException for more than 128 channels.
    CCalibration(unsigned numChannels, int adMin, float voltMin, int adMax, float voltMax, double trueFrequency);
    CCalibration(const CCalibration& src);
    ~CCalibration() override;

    // Sets the base range and frequency, gives every channel a gain of 1 V
    // per world unit and offset 0 (world value = volts), and empties the Bpos
    // table.  Returns 1.  More than 128 channels throws CInvalidArgException
    // and leaves the object unchanged.
    int Create(unsigned numChannels, int adMin, float voltMin, int adMax, float voltMax, double trueFrequency);

    // Copies everything, the world-step table included.
    virtual CCalibration& operator=(const CCalibration& src);

    void Serialize(CArchive& ar) override;

    // Base calibration.  SetBaseCalib re-applies every channel's points so
    // that the (volt, world) points stay fixed under the new range.
    void SetBaseCalib(int adMin, float voltMin, int adMax, float voltMax);
    void GetBaseCalib(int& adMin, float& voltMin, int& adMax, float& voltMax) const;
    int GetAdMin() const { return m_adMin; }
    int GetAdMax() const { return m_adMax; }
    float GetVoltMin() const { return m_voltMin; }
    float GetVoltMax() const { return m_voltMax; }

    void SetTrueFrequency(double frequency) { m_trueFrequency = frequency; }
    double GetTrueFrequency() const { return m_trueFrequency; }

    unsigned GetNumChannels() const { return m_numChannels; }

    // Per-channel calibration.  The AD values given with the points are only
    // stored; the points' AD positions come from the base calibration.
    void SetCalibFromPoints(unsigned channel, long ad1, float volt1, float world1, long ad2, float volt2,
                            float world2);
    void GetCalibPoints(unsigned channel, long& ad1, float& volt1, float& world1, long& ad2, float& volt2,
                        float& world2) const;
    // gain: volts per world unit in the given volt unit (1 microvolts,
    // 2 millivolts, anything else volts); offset: volts at world value 0.
    void SetCalibFromGain(unsigned channel, float gain, float offset, unsigned unit);
    void GetCalibGain(unsigned channel, float& gain, float& offset, unsigned unit) const;

    // Derived values of a channel: the world values at the AD minimum and
    // maximum, and the world step that Calibrate multiplies by (which an
    // insertion leaves stale for the channels after it).
    void GetWorldRange(unsigned channel, float& atAdMin, float& atAdMax) const;
    float GetWorldStep(unsigned channel) const;

    // Channel editing; each returns 1.  The world-step table is not shifted
    // by an insertion: Calibrate keeps using the old steps for the channels
    // after the insertion point until their points are set again.
    int InsertChannel(unsigned index, float volt1, float world1, float volt2, float world2);
    int AddChannel(float volt1, float world1, float volt2, float world2);
    int DeleteChannel(unsigned index);

    // The straight line through (x1, y1) and (x2, y2), evaluated at x.
    static double Eval(double x1, double y1, double x2, double y2, double x);

    double AdToWorld(unsigned channel, int ad) const;
    // Truncates toward zero after adding 0.5.
    int WorldToAd(unsigned channel, double world) const;
    double AdToVolt(int ad) const;
    int VoltToAd(double volt) const;

    // Whole records.  Calibrate: raw AD values to world values, one multiply
    // and one add per sample.  Decalibrate rounds half away from zero;
    // DecalibrateAsVolts truncates.  Decalibrated values wrap to 16 bits.
    // Only the samples that both records hold are converted; a record with
    // more channels than the calibration throws CInvalidArgException.
    void Calibrate(const CRawSigRec* raw, CFmtSigRec* fmt) const;
    void Decalibrate(const CFmtSigRec* fmt, CRawSigRec* raw) const;
    void CalibrateAsVolts(const CRawSigRec* raw, CFmtSigRec* fmt) const;
    void DecalibrateAsVolts(const CFmtSigRec* fmt, CRawSigRec* raw) const;

    // Bpos table: four parallel arrays plus a count that SetNumBpos sets on
    // its own.  Indexes out of range throw CInvalidArgException.
    void SetBposArrSize(unsigned n);
    void SetNumBpos(unsigned n) { m_numBpos = n; }
    unsigned GetNumBpos() const { return m_numBpos; }
    void SetBposThresAt(int index, unsigned short threshold);
    unsigned short GetBposThresAt(int index) const;
    void SetBposNamesAt(int index, CString name);
    CString GetBposNamesAt(int index) const;
    void SetBposKeysAt(int index, CString key);
    CString GetBposKeysAt(int index) const;
    void SetBposUidAt(int index, unsigned short uid);
    unsigned short GetBposUidAt(int index) const;

private:
    // Channel index check of the per-channel operations: assertion with the
    // operation's line, then CInvalidArgException.
    void CheckChannel(unsigned channel, int line) const;
    // Recomputes world step[channel] from the stored world values.
    void UpdateWorldStep(unsigned channel);

    double m_trueFrequency = 0.0;
    short m_adMin = 0;
    float m_voltMin = 0.0f;
    short m_adMax = 0;
    float m_voltMax = 0.0f;
    DWORD m_numChannels = 0;
    DWORD m_numBpos = 0;

    // Per-channel arrays, each sized to the channel count.
    CArray<LONG> m_ad1;
    CArray<float> m_volt1;
    CArray<float> m_world1;
    CArray<LONG> m_ad2;
    CArray<float> m_volt2;
    CArray<float> m_world2;
    CArray<float> m_worldAtAdMin;
    CArray<float> m_worldAtAdMax;
    // World units per AD step, by channel.
    float m_worldStep[kMaxChannels] = {};

    CWordArray m_bposThresholds;
    CStringArray m_bposNames;
    CStringArray m_bposKeys;
    CWordArray m_bposUids;
};

CArchive& operator>>(CArchive& ar, CCalibration*& calibration);
#pragma GCC visibility pop
