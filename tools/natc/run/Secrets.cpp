#include "Secrets.h"

#include "KeldaKernel/Strings.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace natc::run
{
namespace
{
std::optional<std::string> ReadSecretFile(const std::filesystem::path& path)
{
  std::ifstream file(path, std::ios::binary);
  if (!file)
  {
    return std::nullopt;
  }
  std::ostringstream text;
  text << file.rdbuf();
  std::string secret = text.str();
  // Files written with echo or an editor end with a line break that is not part of the secret.
  if (!secret.empty() && secret.back() == '\n')
  {
    secret.pop_back();
    if (!secret.empty() && secret.back() == '\r')
    {
      secret.pop_back();
    }
  }
  return secret;
}
} // namespace

std::vector<SConfigProblem> ResolvePasswords(SRunConfig& config, const std::string& fileName)
{
  std::vector<SConfigProblem> problems;
  const std::filesystem::path directory = std::filesystem::path(fileName).parent_path();
  for (auto& user : config.users)
  {
    const SPasswordSource& source = user.passwordSource;
    if (source.kind == SPasswordSource::EKind::Environment)
    {
      const char* value = std::getenv(source.name.c_str());
      if (value == nullptr)
      {
        problems.push_back({fileName, source.line, source.path + ": environment variable " + source.name + " is not set"});
        continue;
      }
      user.password = kelda::FromUtf8(value);
    }
    else if (source.kind == SPasswordSource::EKind::File)
    {
      const std::filesystem::path path = directory / source.name;
      const std::optional<std::string> secret = ReadSecretFile(path);
      if (!secret)
      {
        problems.push_back({fileName, source.line, source.path + ": password file " + path.string() + " cannot be read"});
        continue;
      }
      user.password = kelda::FromUtf8(*secret);
    }
  }
  return problems;
}

std::vector<SConfigProblem> ExposedPasswordWarnings(const SRunConfig& config, const std::string& fileName)
{
  std::vector<SConfigProblem> warnings;
  struct stat status{};
  if (stat(fileName.c_str(), &status) != 0 || (status.st_mode & (S_IRGRP | S_IROTH)) == 0)
  {
    return warnings;
  }
  for (const auto& user : config.users)
  {
    if (user.passwordSource.kind == SPasswordSource::EKind::Literal && !user.password.empty())
    {
      warnings.push_back({fileName, user.passwordSource.line,
                          user.passwordSource.path + ": a literal password in a file that others can read; "
                                                     "use {\"env\": NAME} or {\"file\": PATH}"});
    }
  }
  return warnings;
}
} // namespace natc::run
