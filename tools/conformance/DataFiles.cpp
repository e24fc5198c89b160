#include "tools/conformance/DataFiles.hpp"

#include "tools/conformance/Failure.hpp"

#include <boost/json/parse.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace conformance
{
namespace
{

namespace json = boost::json;
using std::filesystem::path;

std::vector<path> dataFiles(const path& folder)
{
    std::error_code error;
    std::vector<path> files;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error))
        if (entry->path().extension() == ".json")
            files.push_back(entry->path());
    if (error)
        throw Failure("The folder " + folder.string() + " cannot be read (" + error.message() +
                      "). Name a folder with data files.");
    std::ranges::sort(files);
    return files;
}

std::string contentOf(const path& file)
{
    std::ifstream in(file, std::ios::binary);
    std::ostringstream content;
    // Copying nothing would count as a failure to copy.
    if (in.peek() != std::ifstream::traits_type::eof())
        content << in.rdbuf();
    if (!in.is_open() || in.bad() || !content)
        throw Failure("The file " + file.string() +
                      " cannot be read. Make it readable, or take it out of the folder.");
    return std::move(content).str();
}

Case caseOf(const Judge& judge, const json::object& record, const json::object& meta)
{
    return {&judge, judge.name(record), judge.label ? judge.label(record) : std::string(), &record,
            &meta};
}

/// Tells apart cases that have one name: "name", "name (2)".
void number(std::vector<Case>& cases)
{
    std::map<std::string, int> seen;
    for (Case& each : cases)
        if (const int count = ++seen[each.name]; count > 1)
            each.name += " (" + std::to_string(count) + ")";
}

std::vector<Case> casesOf(const Judge& judge, const json::value& content)
{
    static const json::object nothing;
    const bool isPlain = content.is_array();
    const json::object& meta = isPlain ? nothing : content.as_object().at("meta").as_object();
    const json::value& records = isPlain ? content : content.as_object().at("cases");

    std::vector<Case> cases;
    for (const json::value& record : records.as_array())
        cases.push_back(caseOf(judge, record.as_object(), meta));
    number(cases);
    return cases;
}

DataFile read(const path& file, const Judge& judge)
{
    const std::string text = contentOf(file);
    try
    {
        auto content = std::make_unique<const json::value>(json::parse(text));
        auto cases = casesOf(judge, *content);
        return {file, std::move(cases), std::move(content)};
    }
    catch (const std::exception& error)
    {
        throw Failure("The file " + file.string() + " is no data file of its kind (" +
                      error.what() + "). Mend it, or take it out of the folder.");
    }
}

}  // namespace

Collection collect(std::span<const path> folders, std::span<const Judge> judges)
{
    Collection collection;
    std::set<std::string> found;
    for (const path& folder : folders)
    {
        for (const path& file : dataFiles(folder))
        {
            const auto name = file.filename().string();
            const auto judge = std::ranges::find(judges, name, &Judge::file);
            if (judge == judges.end())
                collection.passedOver.push_back(file);
            else
                collection.files.push_back(read(file, *judge));
            found.insert(name);
        }
    }
    for (const Judge& judge : judges)
        if (!found.contains(std::string(judge.file)))
            collection.missing.emplace_back(judge.file);
    return collection;
}

}  // namespace conformance
