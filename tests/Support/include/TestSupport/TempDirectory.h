// A fresh directory under the system's temporary folder for a test's lifetime, removed with
// everything in it at destruction. Portable: std::filesystem and a random name, no mkdtemp.
//   const TempDirectory directory("natc-run");  ... directory.Path() / "state.json" ...
#pragma once

#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

class TempDirectory
{
public:
  explicit TempDirectory(const std::string& prefix)
  {
    std::random_device random;
    for (int attempt = 0; attempt < 100; ++attempt)
    {
      const auto candidate =
        std::filesystem::temp_directory_path() / (prefix + "-" + std::to_string(random()) + std::to_string(random()));
      // create_directory is false when the name exists: another attempt gets another name.
      if (std::filesystem::create_directory(candidate))
      {
        m_path = candidate;
        return;
      }
    }
    throw std::runtime_error("no temporary directory could be created for " + prefix);
  }
  ~TempDirectory()
  {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;
  const std::filesystem::path& Path() const { return m_path; }

private:
  std::filesystem::path m_path;
};
