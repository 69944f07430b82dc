// Runs a libFuzzer target over the files named on the command line (or in the folders named),
// so that fuzz corpora are replayed as ordinary tests by compilers without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace
{
void RunFile(const std::filesystem::path& path)
{
  std::ifstream in(path, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}
} // namespace

int main(int argc, char** argv)
{
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i)
  {
    const std::filesystem::path path(argv[i]);
    if (std::filesystem::is_directory(path))
    {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
        if (entry.is_regular_file())
        {
          RunFile(entry.path());
          ++count;
        }
    }
    else
    {
      RunFile(path);
      ++count;
    }
  }
  std::printf("replayed %zu inputs\n", count);
  return 0;
}
