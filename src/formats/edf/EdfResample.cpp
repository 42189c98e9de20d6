// Native rate check for imports, and the windowed-sinc resampler.
#include "formats/edf/EdfResample.h"

#include <algorithm>
#include <cmath>

#include "platform/Strings.h"

namespace edf {
namespace {


bool IsWhole(double v, double& rounded) {
    rounded = std::round(v);
    return rounded >= 1 && std::fabs(v - rounded) <= 1e-9 * rounded;
}

std::string Hz(double rate) { return StrFormat("%.6g Hz", rate); }

}  // namespace

bool CheckNativeRates(const std::vector<std::string>& labels, const std::vector<double>& rates, int& baseFrequency,
                      std::vector<int>& samplesPerRecord, std::string& error) {
    if (rates.empty() || labels.size() != rates.size()) {
        error = "Aucun signal à importer";
        return false;
    }
    double highest = *std::max_element(rates.begin(), rates.end());
    double base = 0;
    std::vector<std::string> offenders;
    if (!(highest > 0) || !IsWhole(highest, base) || base > 1e9) {
        for (size_t i = 0; i < rates.size(); ++i)
            if (rates[i] == highest) offenders.push_back(labels[i] + " (" + Hz(rates[i]) + ")");
        error = "La fréquence la plus haute n'est pas un nombre entier de hertz, ce que demande la fréquence de base "
                "d'un enregistrement natif : ";
    } else {
        samplesPerRecord.assign(rates.size(), 0);
        for (size_t i = 0; i < rates.size(); ++i) {
            double ratio = 0;
            if (rates[i] > 0 && IsWhole(base / rates[i], ratio) && ratio <= kNativeRecordSamples &&
                kNativeRecordSamples % int(ratio) == 0)
                samplesPerRecord[i] = kNativeRecordSamples / int(ratio);
            else
                offenders.push_back(labels[i] + " (" + Hz(rates[i]) + ")");
        }
        error = StrFormat("Ces signaux ne s'accordent pas à la fréquence de base de %.0f Hz (%d échantillons par "
                          "enregistrement, chaque fréquence devant en être une fraction 1/1, 1/2, 1/4 ... 1/64) "
                          "et devraient être rééchantillonnés : ", base, kNativeRecordSamples);
    }
    if (!offenders.empty()) {
        for (size_t i = 0; i < offenders.size(); ++i) error += (i ? ", " : "") + offenders[i];
        samplesPerRecord.clear();
        return false;
    }
    error.clear();
    baseFrequency = int(base);
    return true;
}

double NativeRateFor(double rate, int baseFrequency) {
    double r = baseFrequency;
    for (int k = 0; k < 6 && r / 2 >= rate; ++k) r /= 2;
    return r;
}

}  // namespace edf
