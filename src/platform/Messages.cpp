#include "platform/Messages.h"

#include <cerrno>
#include <cstdio>
#include <map>

#include "platform/strings/EdfStrings.h"
#include "platform/strings/NativeStrings.h"
#include "platform/strings/NkStrings.h"
#include "platform/strings/PythonStrings.h"
#include "platform/strings/RegistryStrings.h"
#include "platform/strings/SourceStrings.h"
#include "platform/strings/StatusStrings.h"

namespace {
const std::map<UINT, std::string>& StringTable() {
    static const std::map<UINT, std::string> table = {
        {IDS_UNIT_METER, "m"},
        {IDS_UNIT_FEET, "pi"},
        {IDS_UNIT_INCH, "po"},
        {IDS_UNIT_KG, "kg"},
        {IDS_UNIT_POUND, "lb"},
        {IDS_UNIT_OUNCE, "oz"},
        {IDS_ERR_INVALID_FORMAT, "Tentative de charger un fichier comportant un\nformat invalide ou non reconnu"},
        {IDS_ERR_CODE, "Code d'erreur = %li"},
        {IDS_ERR_FILE_BOX, "Erreur impliquant le fichier\n%s\nou un fichier associé:\n\n%s"},
        {IDS_ERR_24_HOURS, "La durée du fichier dépasse la limite de 24 heures!"},
        {IDS_AT, "à"},
        {IDS_INTERNAL_ERROR, "Erreur interne"},
        {IDS_RFMT_UNKNOWN_ID, "identificateur inconnu '%s'"},
        {IDS_RFMT_EXPECTED, "'%s' prévu"},
        {IDS_RFMT_UNKNOWN_CHAR, "caractère inconnu '%c'"},
        {IDS_RFMT_CONSTANT_EXPECTED, "constant prévu"},
        {IDS_RFMT_SAME_REFERENCE, "toutes les entrées doivent utiliser la même référence"},
        {IDS_RFMT_SAME_SAMPLES, "toutes les entrées doivent avoir le même nombre d'échantillons par enregistrement"},
        {IDS_RFMT_SAME_FREQUENCY, "toutes les entrées doivent utiliser la même fréquence d'échantillonnage"},
        {IDS_RFMT_SAME_TYPE, "toutes les entrées doivent avoir le même type"},
        {IDS_RFMT_SAME_UNIT, "toutes les entrées doivent avoir les mêmes unités"},
        {IDS_RFMT_BAD_ARGUMENT, "argument invalide pour la fonction '%s'"},
        {IDS_RFMT_MISSING_OPERAND, "opérande manquant"},
        {IDS_RFMT_INTERNAL, "Erreur interne de compilation"},
        {IDS_RFMT_WARNING, "Avertissement!"},
        {IDS_RFMT_CANNOT_COMPILE, "Impossible de compiler [%s]:"},
        {IDS_RFMT_BAD_MACRO_NAME, "Nom de macro invalide '%s'"},
        {IDS_RFMT_INCOMPLETE, "expression incomplète"},
        {IDS_FILTERS_INCOMPATIBLE,
         "Le fichier de définitions des filtres est incompatible avec cette version d'Tessaryn,\n"
         "et par conséquence il est impossible d'utiliser ce fichier.\n"
         "Veuillez utiliser un fichier de définitions compatible ou contactez le service à la clientèle de Varnholt."},
        // The texts of later subsystems, one file each (platform/strings/README.md).
#include "platform/strings/RegistryStrings.inc"
#include "platform/strings/EdfStrings.inc"
#include "platform/strings/NativeStrings.inc"
#include "platform/strings/NkStrings.inc"
#include "platform/strings/StatusStrings.inc"
#include "platform/strings/SourceStrings.inc"
#include "platform/strings/PythonStrings.inc"
    };
    return table;
}

const std::map<long, std::string>& SystemTexts() {
    static const std::map<long, std::string> texts = {
        {1, "Fonction incorrecte."},
        {2, "Le fichier spécifié est introuvable."},
        {3, "Le chemin d'accès spécifié est introuvable."},
        {4, "Le système ne peut pas ouvrir le fichier."},
        {5, "Accès refusé."},
        {6, "Descripteur non valide."},
        {8, "Les ressources mémoire disponibles sont insuffisantes pour traiter cette commande."},
        {11, "Tentative de chargement d'un programme de format incorrect."},
        {17, "Impossible de déplacer le fichier vers un lecteur de disque différent."},
        {19, "Le support est protégé en écriture."},
        {24, "Le programme a émis une commande de longueur incorrecte."},
        {25, "Le lecteur ne trouve pas une zone ou une piste spécifique sur le disque."},
        {29, "Le système ne peut pas écrire sur le périphérique spécifié."},
        {30, "Le système ne peut pas lire à partir du périphérique spécifié."},
        {31, "Un périphérique attaché au système ne fonctionne pas correctement."},
        {32, "Le processus ne peut pas accéder au fichier car ce fichier est utilisé par un autre processus."},
        {33, "Le processus ne peut pas accéder au fichier car un autre processus en a verrouillé une partie."},
        {38, "Fin de fichier atteinte."},
        {50, "Cette demande n'est pas prise en charge."},
        {80, "Le fichier existe."},
        {87, "Paramètre incorrect."},
        {112, "Espace insuffisant sur le disque."},
        {123, "La syntaxe du nom de fichier, de répertoire ou de volume est incorrecte."},
        {145, "Le répertoire n'est pas vide."},
        {183, "Impossible de créer un fichier déjà existant."},
        {206, "Le nom de fichier ou l'extension est trop long."},
    };
    return texts;
}

thread_local long t_lastError = 0;

MessageSink& Sink() {
    static MessageSink sink;
    return sink;
}

void DefaultSink(const std::string& text, const std::string& caption) {
    std::string line = caption.empty() ? FoldToOneLine(text) : caption + ": " + FoldToOneLine(text);
    std::fprintf(stderr, "%s\n", line.c_str());
}
}  // namespace

std::string FoldToOneLine(const std::string& text) {
    std::string line;
    bool inBreak = false;
    for (char c : text) {
        if (c == '\n' || c == '\r') {
            if (!inBreak) line += ' ';
            inBreak = true;
        } else {
            line += c;
            inBreak = false;
        }
    }
    return line;
}

const std::string& LoadResString(UINT id) {
    static const std::string empty;
    auto it = StringTable().find(id);
    return it == StringTable().end() ? empty : it->second;
}

long ErrnoToSystemError(int err) {
    switch (err) {
        case 0: return ERROR_SUCCESS;
        case ENOENT: return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
        case ELOOP: return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EISDIR: return ERROR_ACCESS_DENIED;
        case EROFS: return ERROR_WRITE_PROTECT;
        case EMFILE:
        case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
        case EBADF: return ERROR_INVALID_HANDLE;
        case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
        case ENOSPC:
        case EDQUOT:
        case EFBIG: return ERROR_DISK_FULL;
        case EEXIST: return ERROR_FILE_EXISTS;
        case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
        case EINVAL: return ERROR_INVALID_PARAMETER;
        case EIO: return ERROR_GEN_FAILURE;
        case EBUSY:
        case EWOULDBLOCK: return ERROR_SHARING_VIOLATION;
        case ENOTEMPTY: return ERROR_DIR_NOT_EMPTY;
        case EXDEV: return 17;
        case ESPIPE: return ERROR_SEEK;
        default: return ERROR_GEN_FAILURE;
    }
}

bool GetSystemErrorText(long code, std::string& text) {
    auto it = SystemTexts().find(code);
    if (it == SystemTexts().end()) return false;
    text = it->second;
    return true;
}

void SetLastError(long code) { t_lastError = code; }
long GetLastError() { return t_lastError; }

namespace {
thread_local long t_detailCode = 0;
thread_local std::string t_detail;
}  // namespace

void SetLastErrorDetail(long code, const std::string& text) {
    t_detailCode = text.empty() ? 0 : code;
    t_detail = text;
}

std::string GetLastErrorDetail(long code) { return code != 0 && code == t_detailCode ? t_detail : std::string(); }

MessageSink SetMessageSink(MessageSink sink) {
    MessageSink old = std::move(Sink());
    Sink() = std::move(sink);
    return old;
}

int AfxMessageBox(const std::string& text, const std::string& caption) {
    if (Sink()) Sink()(text, caption);
    else DefaultSink(text, caption);
    return 1;
}
