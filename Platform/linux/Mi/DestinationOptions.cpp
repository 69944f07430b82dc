#include "DestinationOptions.h"

#include "Handles.h"
#include "Text.h"

#include <map>
#include <string>

namespace platform::mi
{
namespace
{
const wchar_t kPacketPrivacy[] = L"__MI_DESTINATIONOPTIONS_PACKET_PRIVACY";
const wchar_t kDestinationCredentials[] = L"__MI_DESTINATIONOPTIONS_DESTINATION_CREDENTIALS";

struct OptionsObject
{
  std::map<std::wstring, std::uint32_t, std::less<>> numbers;
  std::map<std::wstring, std::wstring, std::less<>> strings;
  std::vector<Credentials> credentials;
  std::shared_ptr<OptionsRecord> record;
};

OptionsObject* Object(const MI_DestinationOptions* options) { return From<OptionsObject>(options, kOptionsTag); }

void MI_CALL Delete(MI_DestinationOptions* options)
{
  auto object = Release<OptionsObject>(options, kOptionsTag);
  if (!object)
    return;
  Monitor& monitor = Monitor::Instance();
  monitor.Update([&] { object->record->deleted = true; });
  monitor.destinationOptions.fetch_sub(1);
}

MI_Result MI_CALL SetString(MI_DestinationOptions* options, const MI_Char* name, const MI_Char* value, MI_Uint32)
{
  OptionsObject* object = Object(options);
  if (!object || !name || !value)
    return MI_RESULT_INVALID_PARAMETER;
  object->strings[name] = value;
  return MI_RESULT_OK;
}

MI_Result MI_CALL SetNumber(MI_DestinationOptions* options, const MI_Char* name, MI_Uint32 value, MI_Uint32)
{
  OptionsObject* object = Object(options);
  if (!object || !name)
    return MI_RESULT_INVALID_PARAMETER;
  object->numbers[name] = value;
  Monitor::Instance().Update([&] {
    object->record->numbers[name] = value;
    if (std::wstring_view(name) == kPacketPrivacy)
      object->record->packetPrivacy = value;
  });
  return MI_RESULT_OK;
}

MI_Result MI_CALL AddCredentials(MI_DestinationOptions* options, const MI_Char* name,
                                 const MI_UserCredentials* credentials, MI_Uint32)
{
  OptionsObject* object = Object(options);
  if (!object || !name || !credentials || !credentials->authenticationType)
    return MI_RESULT_INVALID_PARAMETER;
  Credentials copy;
  copy.optionName = name;
  copy.authenticationType = credentials->authenticationType;
  const MI_UsernamePasswordCreds& user = credentials->credentials.usernamePassword;
  copy.domain = View(user.domain);
  copy.user = View(user.username);
  copy.password = View(user.password);
  object->credentials.push_back(copy);
  Monitor::Instance().Update([&] { object->record->credentials.push_back(std::move(copy)); });
  return MI_RESULT_OK;
}

// Finds a named option in one of the maps and reports its position there (options carry no flags).
template <class Map>
typename Map::const_iterator FindOption(const Map& options, const MI_Char* name, MI_Uint32* index, MI_Uint32* flags)
{
  const auto found = options.find(std::wstring_view(name));
  if (found == options.end())
    return found;
  if (index)
    *index = static_cast<MI_Uint32>(std::distance(options.begin(), found));
  if (flags)
    *flags = 0;
  return found;
}

MI_Result MI_CALL GetString(MI_DestinationOptions* options, const MI_Char* name, const MI_Char** value,
                            MI_Uint32* index, MI_Uint32* flags)
{
  OptionsObject* object = Object(options);
  if (!object || !name || !value)
    return MI_RESULT_INVALID_PARAMETER;
  const auto found = FindOption(object->strings, name, index, flags);
  if (found == object->strings.end())
    return MI_RESULT_NO_SUCH_PROPERTY;
  *value = found->second.c_str();
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetNumber(MI_DestinationOptions* options, const MI_Char* name, MI_Uint32* value, MI_Uint32* index,
                            MI_Uint32* flags)
{
  OptionsObject* object = Object(options);
  if (!object || !name || !value)
    return MI_RESULT_INVALID_PARAMETER;
  const auto found = FindOption(object->numbers, name, index, flags);
  if (found == object->numbers.end())
    return MI_RESULT_NO_SUCH_PROPERTY;
  *value = found->second;
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetOptionCount(MI_DestinationOptions* options, MI_Uint32* count)
{
  OptionsObject* object = Object(options);
  if (!object || !count)
    return MI_RESULT_INVALID_PARAMETER;
  *count = static_cast<MI_Uint32>(object->numbers.size() + object->strings.size());
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetOptionAt(MI_DestinationOptions*, MI_Uint32, const MI_Char**, MI_Value*, MI_Type*, MI_Uint32*)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL GetOption(MI_DestinationOptions*, const MI_Char*, MI_Value*, MI_Type*, MI_Uint32*, MI_Uint32*)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL GetCredentialsCount(MI_DestinationOptions* options, MI_Uint32* count)
{
  OptionsObject* object = Object(options);
  if (!object || !count)
    return MI_RESULT_INVALID_PARAMETER;
  *count = static_cast<MI_Uint32>(object->credentials.size());
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetCredentialsAt(MI_DestinationOptions* options, MI_Uint32 index, const MI_Char** name,
                                   MI_UserCredentials* credentials, MI_Uint32* flags)
{
  OptionsObject* object = Object(options);
  if (!object || !credentials)
    return MI_RESULT_INVALID_PARAMETER;
  if (index >= object->credentials.size())
    return MI_RESULT_NOT_FOUND;
  const Credentials& stored = object->credentials[index];
  if (name)
    *name = stored.optionName.c_str();
  *credentials = MI_UserCredentials{};
  credentials->authenticationType = stored.authenticationType.c_str();
  credentials->credentials.usernamePassword.domain = stored.domain.c_str();
  credentials->credentials.usernamePassword.username = stored.user.c_str();
  // The password is only given out by GetCredentialsPasswordAt.
  credentials->credentials.usernamePassword.password = nullptr;
  if (flags)
    *flags = 0;
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetCredentialsPasswordAt(MI_DestinationOptions* options, MI_Uint32 index, const MI_Char** name,
                                           MI_Char* password, MI_Uint32 bufferLength, MI_Uint32* passwordLength,
                                           MI_Uint32* flags)
{
  OptionsObject* object = Object(options);
  if (!object || !passwordLength)
    return MI_RESULT_INVALID_PARAMETER;
  if (index >= object->credentials.size())
    return MI_RESULT_NOT_FOUND;
  const Credentials& stored = object->credentials[index];
  if (name)
    *name = stored.optionName.c_str();
  if (flags)
    *flags = 0;
  *passwordLength = static_cast<MI_Uint32>(stored.password.size() + 1);
  if (!password || bufferLength < *passwordLength)
    return MI_RESULT_INVALID_PARAMETER;
  stored.password.copy(password, stored.password.size());
  password[stored.password.size()] = L'\0';
  return MI_RESULT_OK;
}

MI_Result MI_CALL Clone(const MI_DestinationOptions* self, MI_DestinationOptions* newOptions);

MI_Result MI_CALL SetInterval(MI_DestinationOptions*, const MI_Char*, const MI_Interval*, MI_Uint32)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL GetInterval(MI_DestinationOptions*, const MI_Char*, MI_Interval*, MI_Uint32*, MI_Uint32*)
{
  return MI_RESULT_NOT_SUPPORTED;
}

const MI_DestinationOptionsFT kOptionsFT = {
    Delete,         SetString,   SetNumber,
    AddCredentials, GetString,   GetNumber,
    GetOptionCount, GetOptionAt, GetOption,
    GetCredentialsCount, GetCredentialsAt, GetCredentialsPasswordAt,
    Clone,          SetInterval, GetInterval,
};

MI_Result MI_CALL Clone(const MI_DestinationOptions* self, MI_DestinationOptions* newOptions)
{
  const OptionsObject* object = Object(self);
  if (!object || !newOptions)
    return MI_RESULT_INVALID_PARAMETER;
  auto copy = std::make_unique<OptionsObject>(*object);
  Monitor& monitor = Monitor::Instance();
  copy->record = monitor.OptionsCreated();
  monitor.Update([&] { *copy->record = *object->record; });
  Attach(newOptions, kOptionsTag, std::move(copy), &kOptionsFT);
  monitor.destinationOptions.fetch_add(1);
  return MI_RESULT_OK;
}
} // namespace

MI_Result NewDestinationOptions(MI_DestinationOptions* options)
{
  if (!options)
    return MI_RESULT_INVALID_PARAMETER;
  Monitor& monitor = Monitor::Instance();
  if (const std::uint32_t fault = monitor.Fault(Call::NewDestinationOptions))
  {
    *options = MI_DestinationOptions MI_DESTINATIONOPTIONS_NULL;
    return static_cast<MI_Result>(fault);
  }
  auto object = std::make_unique<OptionsObject>();
  object->record = monitor.OptionsCreated();
  Attach(options, kOptionsTag, std::move(object), &kOptionsFT);
  monitor.destinationOptions.fetch_add(1);
  return MI_RESULT_OK;
}

std::vector<Credentials> DestinationCredentials(const MI_DestinationOptions* options)
{
  std::vector<Credentials> result;
  if (const OptionsObject* object = Object(options))
    for (const Credentials& credentials : object->credentials)
      if (credentials.optionName == kDestinationCredentials)
        result.push_back(credentials);
  return result;
}

std::optional<std::uint32_t> PacketPrivacy(const MI_DestinationOptions* options)
{
  if (const OptionsObject* object = Object(options))
  {
    const auto found = object->numbers.find(std::wstring_view(kPacketPrivacy));
    if (found != object->numbers.end())
      return found->second;
  }
  return std::nullopt;
}
} // namespace platform::mi
