#include "tests/support/TemporaryFolder.hpp"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

TemporaryFolder::TemporaryFolder()
{
    auto name = (std::filesystem::temp_directory_path() / "tessera-XXXXXX").string();
    if (!mkdtemp(name.data()))
        throw std::runtime_error("no temporary folder could be made: " + name);
    path_ = name;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void TemporaryFolder::write(const std::filesystem::path& name, std::string_view content) const
{
    const auto file = path_ / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!out.flush())
        throw std::runtime_error("could not write " + file.string());
}
