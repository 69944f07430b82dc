// Records are what collections hand to subscribers: a list of named, typed fields looked up by
// name, a record type and, for records with an identity, a key (class + key fields).
// Lookups may reorder the fields, so a record must not be searched from two threads at once.
// Pointers returned by the lookups point into the record and stay valid until it is destroyed
// or a field is appended.
#pragma once

#include "Collector/Interfaces/FieldValue.h"
#include "Collector/Interfaces/IClass.h"
#include "Collector/Interfaces/IObject.h"
#include "KeldaKernel/Strings.h"

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace collector::ni
{
class IField : public IObject
{
public:
  virtual const tstring& GetName() const = 0;
  // Both overloads return the same object; read it with index() and std::get.
  virtual FieldValue& GetValue() = 0;
  virtual const FieldValue& GetValue() const = 0;
};

class IKey : public IObject
{
public:
  virtual std::shared_ptr<IClass> GetClass() const = 0;
  virtual const std::vector<std::shared_ptr<IField>>& GetFields() const = 0;
};

class IRecord : public IObject
{
public:
  // Null for a record without key.
  virtual IKey* GetKey() = 0;
  // Exact, case-sensitive lookup; null when absent.
  virtual IField* FindField(std::wstring_view name) = 0;
  virtual IField* FindField(const tstring& name) = 0;
  // As FindField, but an absent name throws CKeldaException "Not found".
  virtual IField* GetField(std::wstring_view name) = 0;

  // A literal would convert equally well to both virtual overloads; this picks one.
  IField* FindField(const wchar_t* name) { return FindField(std::wstring_view(name)); }
};

class ICompositionRecord : public IRecord
{
public:
  // A new heap record of the same class that takes over every field (and the key); this record
  // is left empty. The caller owns the result and deletes it.
  virtual ICompositionRecord* Detach() = 0;
  virtual std::uint32_t GetType() const = 0;
};
} // namespace collector::ni
