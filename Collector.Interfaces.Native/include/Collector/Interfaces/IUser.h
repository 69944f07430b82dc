// Credentials that collections connect with, and their pool. The account name is kept as given
// and split once into domain and user name ("DOMAIN\\user", "user@domain" or a bare "user").
#pragma once

#include "Collector/Interfaces/IObject.h"
#include "KeldaKernel/Strings.h"
#include "Platform/Windows.h"

#include <memory>
#include <string_view>
#include <vector>

namespace collector::ni
{
class IUser : public IObject
{
public:
  virtual GUID GetId() const = 0;
  virtual tstring GetName() const = 0;
  virtual tstring GetDomain() const = 0;
  virtual tstring GetUserName() const = 0;
  virtual tstring GetPassword() const = 0;
};

class IUserPool : public IObject
{
public:
  // A user with a fresh identifier; name and password are not checked.
  virtual std::shared_ptr<IUser> Create(std::wstring_view name, std::wstring_view password) = 0;
  // The user under GUID_NULL, replacing any earlier default user.
  virtual std::shared_ptr<IUser> CreateDefault(std::wstring_view name, std::wstring_view password) = 0;
  // The user, or an empty pointer when the identifier is unknown.
  virtual std::shared_ptr<IUser> Get(GUID id) = 0;
  // A snapshot of every user, in identifier order.
  virtual std::vector<std::shared_ptr<IUser>> GetAll() = 0;
};
} // namespace collector::ni
