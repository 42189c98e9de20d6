// Default names and descriptions of the well-known status groups and of
// their property keys.  Names are the names the acquisition and review
// programs have always given these groups (files hold them as they stand);
// descriptions are the French texts shown to users.
#include "status/GroupDefaults.h"

#include <cstring>

#include "platform/Strings.h"

namespace {

struct GroupDefault {
    const char* id;
    const char* name;
    const char* description;
    const char* dependentId;  // section group produced by a detection run
};

const GroupDefault kGroups[] = {
    {groupid::kDiscontinuity, "Discontinuity", "Discontinuité de l'enregistrement", ""},
    {groupid::kSampleSection, "Sample Section", "Section d'échantillon", ""},
    {groupid::kCalibrationSection, "Calibration Section", "Section de calibration", ""},
    {groupid::kPushButtonSection, "Push Button Section", "Section marquée par le bouton patient", ""},
    {groupid::kScheduledSection, "Scheduled Section", "Section programmée", ""},
    {groupid::kAnnotation, "Annotation", "Annotations", ""},
    {groupid::kBookmarks, "Bookmarks", "Signets", ""},
    {groupid::kTracesAsObserved, "Traces as Observed", "Tracés tels qu'observés", ""},
    {groupid::kCalibrationLabel, "Calibration Label", "Étiquettes de calibration", ""},
    {groupid::kTrigger, "Trigger Detection", "Détection de déclenchements", ""},
    {groupid::kArtifact, "Artifact Detection", "Détection d'artefacts", ""},
    {groupid::kQrs, "QRS Detection", "Détection des complexes QRS", ""},
    {groupid::kRespiratoryPap, "Respiratory Events (PAP)", "Événements respiratoires sous PPC", ""},
    {groupid::kRespiratory, "Respiratory Events", "Événements respiratoires", ""},
    {groupid::kDesaturation, "Desaturation", "Désaturations en oxygène", ""},
    {groupid::kPeriodicLimbMovement, "Periodic Limb Movements", "Mouvements périodiques des membres", ""},
    {groupid::kLimbMovement, "Limb Movements", "Mouvements des membres", ""},
    {groupid::kSpindle, "Spindle Detection", "Détection des fuseaux", ""},
    {groupid::kHeartRate, "Heart Rate Variability", "Variabilité du rythme cardiaque", ""},
    {groupid::kHeartRateOther, "Heart Rate Variability 2", "Variabilité du rythme cardiaque (autre voie)", ""},
    {groupid::kSleepStages, "Sleep Stages", "Stades de sommeil", ""},
    {groupid::kHyperventilation, "Hyperventilation", "Hyperventilation", ""},
    {groupid::kPostHyperventilation, "Post Hyperventilation", "Post-hyperventilation", ""},
    {groupid::kPushButtonDetection, "Push Button Detection", "Détection du bouton patient", ""},
    {groupid::kEpiDetection, "Epileptiform Detection", "Détection d'activités épileptiformes",
     groupid::kEpiRhythmSection},
    {groupid::kRhythmDetection, "Rhythmic Activity Detection", "Détection d'activités rythmiques",
     groupid::kEpiRhythmSection},
    {groupid::kEpiRhythmSection, "Detection Section", "Sections analysées par la détection", ""},
    {groupid::kMultiSpikeDetection, "Multiple Spike Detection", "Détection de pointes multiples",
     groupid::kMultiSpikeSection},
    {groupid::kMultiSpikeSection, "Multiple Spike Section", "Sections analysées (pointes multiples)", ""},
    {groupid::kSpikeStateDetection, "Spike Detection (State)", "Détection de pointes selon l'état",
     groupid::kSpikeStateSection},
    {groupid::kSpikeStateSection, "Spike Section (State)", "Sections analysées (pointes selon l'état)", ""},
    {groupid::kSpikeDetection, "Spike Detection", "Détection de pointes", groupid::kSpikeSection},
    {groupid::kSpikeDerDetection, "Spike Detection (Derivations)", "Détection de pointes par dérivation",
     groupid::kSpikeSection},
    {groupid::kSpikeSection, "Spike Section", "Sections analysées (pointes)", ""},
    {groupid::kSeizureDetection, "Seizure Detection", "Détection de crises", groupid::kSeizureSection},
    {groupid::kSeizureSection, "Seizure Section", "Sections analysées (crises)", ""},
    {groupid::kOffRecordingNotes, "Notes", "Notes hors enregistrement", ""},
    {groupid::kChannelDescriptions, "Channel Descriptions", "Description des canaux dans leur fichier d'origine", ""},
};

struct KeyDesc {
    const char* key;
    const char* description;
};

const KeyDesc kKeys[] = {
    {"DetChan", "Canal de détection"},
    {"DetAlwOn", "Détection toujours active"},
    {"DigitalTrig", "Déclenchement numérique"},
    {"AnalogTrig", "Déclenchement analogique"},
    {"MaxAbsAmp", "Amplitude absolue maximale"},
    {"Sens", "Sensibilité"},
    {"RWidth", "Largeur de l'onde R"},
    {"QRSAmp", "Amplitude du QRS"},
    {"EVTLEN", "Durée minimale de l'événement (s)"},
    {"APNPER", "Réduction du débit pour une apnée (%)"},
    {"HYPPER", "Réduction du débit pour une hypopnée (%)"},
    {"MINDUR", "Durée minimale (s)"},
    {"THRESHOLD", "Seuil"},
    {"BASELINEWINDUR", "Durée de la fenêtre de référence (s)"},
    {"LMMinDur", "Durée minimale d'un mouvement (s)"},
    {"LMMaxDur", "Durée maximale d'un mouvement (s)"},
    {"MinInterMovInterv", "Intervalle minimal entre mouvements (s)"},
    {"PLMDetChan", "Canal de détection des mouvements périodiques"},
    {"SPNPWRTHR", "Seuil de puissance des fuseaux"},
    {"MINSPNDUR", "Durée minimale d'un fuseau (s)"},
    {"ARTREJTHR", "Seuil de rejet des artefacts"},
    {"Mean", "Moyenne"},
    {"STD", "Écart type"},
    {"NumberOfRR", "Nombre d'intervalles RR"},
    {"EpochLength", "Durée d'une époque (s)"},
    {"Amep", "Amplitude de l'événement"},
    {"Duep", "Durée de l'événement"},
    {"DetFreq", "Fréquence détectée (Hz)"},
    {"MaxCoVar", "Coefficient de variation maximal"},
    {"Rhythmic", "Activité rythmique"},
    {"MultSpk", "Pointes multiples"},
    {"SpkAmpThr", "Seuil d'amplitude des pointes"},
    {"DurHw1", "Durée de la première demi-onde"},
    {"AmpHw1", "Amplitude de la première demi-onde"},
    {"EegState", "État de l'EEG"},
    {"DerPts", "Points de dérivation"},
    {"SeizTemplAmpEpoch", "Amplitude du modèle de crise par époque"},
    {"SeizTemplFreqEpoch", "Fréquence du modèle de crise par époque"},
    {"SeizTemplCoefVar", "Coefficient de variation du modèle de crise"},
};

const GroupDefault* FindGroup(const char* id) {
    if (!id) return nullptr;
    for (const auto& g : kGroups)
        if (EqualsNoCase(g.id, id)) return &g;
    return nullptr;
}

}  // namespace

CString GetDefaultGroupName(const char* groupId) {
    const GroupDefault* g = FindGroup(groupId);
    return g ? g->name : "";
}

CString GetDefaultGroupDesc(const char* groupId) {
    const GroupDefault* g = FindGroup(groupId);
    return g ? g->description : "";
}

CString GetGroupPropertyDesc(const char* /*groupId*/, const char* key) {
    if (!key) return "";
    for (const auto& k : kKeys)
        if (EqualsNoCase(k.key, key)) return k.description;
    return "";
}

CString GetDependentGroupId(const char* groupId) {
    const GroupDefault* g = FindGroup(groupId);
    return g ? g->dependentId : "";
}

bool IsWellKnownGroupId(const char* groupId) { return FindGroup(groupId) != nullptr; }
