// The EDF+ / BDF+ branch of the export command.
#include "Commands.h"
#include "formats/edf/EdfExport.h"

namespace sigfile_tool {

int RunEdfExport(const std::string& file, const std::string& out, const std::string& montage,
                 const std::string& records) {
    edf::EdfExportOptions options;
    options.montage = montage;
    if (!records.empty() && !edf::ParseRecordRange(records, options.firstRecord, options.endRecord)) {
        PrintError("--records : plage « " + records + " » invalide (attendu A:B)");
        return 2;
    }
    std::string error;
    if (edf::ExportEdf(file.c_str(), out.c_str(), options, &error)) return 0;
    PrintError(error);
    return 1;
}

}  // namespace sigfile_tool
