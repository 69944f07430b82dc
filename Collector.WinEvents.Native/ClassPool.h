// Classes name the kind of data a collection produces (identifier = the collection's, name =
// its type name). The pool always holds the default class (GUID_NULL, empty name); tasks add a
// class per collection with Create and drop it with Remove.
#pragma once

#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/Impl/PoolBase.h"

#include <memory>
#include <string_view>

namespace collector::ni::impl
{
class CClass : public IClass
{
public:
  CClass(const GUID& id, std::wstring_view name) : m_id(id), m_name(name) {}

  GUID GetId() const override { return m_id; }
  tstring GetName() const override { return m_name; }

private:
  const GUID m_id;
  const tstring m_name;
};

class CClassPool : public CPoolBase<CClass>, public IClassPool
{
public:
  CClassPool();

  std::shared_ptr<IClass> Get(GUID id) override;
  // Adds (or replaces) the class under `id`; the name is not checked.
  std::shared_ptr<IClass> Create(GUID id, std::wstring_view name);
  // Forgets the class under `id`; an unknown identifier is ignored.
  void Remove(GUID id);

private:
  std::shared_ptr<CClass> m_default;
};
} // namespace collector::ni::impl
