#include "commands.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "landscape/commandoptions.h"
#include "landscape/errors.h"
#include "landscape/landscapeoptions.h"
#include "landscape/reports.h"

#include <nbx/object/stringutils.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/util/validation/filevalidation.h>

namespace {

using ZMT::UTIL::ValidationReport;

struct ValidateOptions {
    std::string file;
    std::uint64_t key = 0;
    bool json = false;
};

ValidationReport validated(const ValidateOptions & options) {
    std::wstring problem;
    NBX::SO<ZMT::CORE::AsyncFile> file;
    {
        const Reports told; // by the problem
        file =
            ZMT::CORE::AsyncFile::create(NBX::StringUtils::Utf8String2WString(options.file), false, &problem);
    }
    if (!file) throw DataError(options.file + ": " + NBX::StringUtils::WString2Utf8String(problem));
    const ValidationReport report = ZMT::UTIL::FileValidation::run(*file, options.key);
    if (report.isCancelled) throw DataError("cancelled");
    return report;
}

void printText(const ValidateOptions & options, const ValidationReport & report) {
    for (const ValidationReport::Fault & fault : report.faults)
        std::printf("offset %" PRIu64 ": %s\n", fault.offset, fault.what.c_str());
    if (report.faultCount > report.faults.size())
        std::printf("and %" PRIu64 " more\n", report.faultCount - report.faults.size());
    if (!report.isSound()) return;
    const std::string light =
        report.lightTiles > 0 ? ", light map of " + std::to_string(report.lightTiles) + " tiles" : "";
    std::printf("%s: sound; %s, tiles: %" PRIu64 ", levels: %" PRIu64 ", bytes: %" PRIu64 "%s\n",
                options.file.c_str(), ValidationReport::formatName(report.format), report.tiles,
                report.levels, report.fileBytes, light.c_str());
}

void printJson(const ValidateOptions & options, const ValidationReport & report) {
    nlohmann::ordered_json object;
    object["file"] = options.file;
    object["format"] = report.format == ValidationReport::F_Unknown
                           ? nlohmann::ordered_json()
                           : nlohmann::ordered_json(ValidationReport::formatName(report.format));
    object["sound"] = report.isSound();
    object["fault_count"] = report.faultCount;
    object["faults"] = nlohmann::ordered_json::array();
    for (const ValidationReport::Fault & fault : report.faults)
        object["faults"].push_back({{"offset", fault.offset}, {"what", fault.what}});
    object["blocks"] = report.tiles + report.lightTiles;
    object["light_blocks"] = report.lightTiles;
    object["levels"] = report.levels;
    object["bytes"] = report.fileBytes;
    std::printf("%s\n", object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

void validate(const ValidateOptions & options) {
    const ValidationReport report = validated(options);
    options.json ? printJson(options, report) : printText(options, report);
    if (report.isSound()) return;
    const std::string faults =
        report.faultCount == 1 ? "a fault" : std::to_string(report.faultCount) + " faults";
    throw DataError(options.file + ": has " + faults + "; get it anew, or build it again");
}

} // namespace

void addValidateCommand(CLI::App & app) {
    auto * command = app.add_subcommand(
        "validate", "Checks all of a streaming terrain, a streaming texture or a texture pyramid: each fault "
                    "is a line with its offset in the file, and the status is 1 if there is any.");
    const auto options = std::make_shared<ValidateOptions>();
    command->add_option("FILE", options->file, "The file, or its URL; the content tells the format")
        ->required();
    addParsedOption(*command, "--key", options->key, parseKey,
                    "Key with which a texture or a pyramid was written");
    command->add_flag(
        "--json", options->json,
        "Write an object with file, format, sound, fault_count, faults, which are the first 100 "
        "and have offset and what, blocks, light_blocks, levels and bytes");
    command->callback([options] { validate(*options); });
}
