#pragma once

#include "tools/conformance/Judge.hpp"

#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace conformance
{

/// One case of a data file. It points into the file's content.
struct Case
{
    const Judge* judge;
    /// Unique in its file.
    std::string name;
    std::string label;
    const boost::json::object* record;
    const boost::json::object* meta;
};

struct DataFile
{
    std::filesystem::path path;
    std::vector<Case> cases;
    /// What the cases point into; it never moves.
    std::unique_ptr<const boost::json::value> content;
};

/// What the folders hold.
struct Collection
{
    std::vector<DataFile> files;
    /// Data files without a judge.
    std::vector<std::filesystem::path> passedOver;
    /// Judges without a data file.
    std::vector<std::string> missing;
};

/// Reads the data files of the folders, sorted by name in each. A file is either an array of cases
/// or an object with the members "meta" and "cases". Throws `Failure` for a folder or a file that
/// cannot be read.
Collection collect(std::span<const std::filesystem::path> folders, std::span<const Judge> judges);

}  // namespace conformance
