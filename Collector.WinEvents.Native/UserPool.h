// The credentials collections connect with: CUser (account name as given, its domain and user
// name parts, password; all immutable) and the pool handed out through GetUserPool().
#pragma once

#include "Collector/Interfaces/IUser.h"
#include "Collector/Interfaces/Impl/PoolBase.h"

#include <memory>
#include <string_view>
#include <vector>

namespace collector::ni::impl
{
struct SAccountName
{
  tstring Domain;
  tstring UserName;
};

// "DOMAIN\user" and "user@domain" split into their parts when the separator occurs exactly
// once (backslash first); any other name is a bare user name with no domain.
SAccountName SplitAccountName(std::wstring_view name);

class CUser : public IUser
{
public:
  CUser(const GUID& id, std::wstring_view name, std::wstring_view password);

  GUID GetId() const override { return m_id; }
  tstring GetName() const override { return m_name; }
  tstring GetDomain() const override { return m_domain; }
  tstring GetUserName() const override { return m_userName; }
  tstring GetPassword() const override { return m_password; }

private:
  GUID m_id;
  tstring m_name;
  tstring m_domain;
  tstring m_userName;
  tstring m_password;
};

class CUserPool : public CPoolBase<CUser>, public IUserPool
{
public:
  std::shared_ptr<IUser> Create(std::wstring_view name, std::wstring_view password) override;
  std::shared_ptr<IUser> CreateDefault(std::wstring_view name, std::wstring_view password) override;
  std::shared_ptr<IUser> Get(GUID id) override;
  std::vector<std::shared_ptr<IUser>> GetAll() override;
};
} // namespace collector::ni::impl
