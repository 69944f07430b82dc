// A parsed query checked against the declaration of its class: every named property exists and
// every literal fits the type it is compared with, else MI_RESULT_INVALID_QUERY (15): WMI answers
// a query naming a property its class lacks with WBEM_E_INVALID_QUERY, not with a property error. It then filters instances and applies the projection.
//
// Projection, as WMI does it: a projected instance still has every property of its class, but the
// properties neither selected nor keys (qualifier "Key" true) are NULL. "SELECT *" keeps all.
//
// Comparison rules: strings compare without regard to case; numbers (all integer and real types,
// booleans, char16) compare by value; a string literal compared with a number is read as a number;
// date-times compare with DMTF text literals ("20200101120000.000000+060") in UTC. A comparison
// involving a NULL property is false (so NOT of it is true); "= NULL" means IS NULL, and
// "<> NULL" / "!= NULL" mean IS NOT NULL.
#pragma once

#include "Cim/Model.h"
#include "Cim/Wql/Ast.h"

#include <memory>
#include <vector>

namespace cim::wql
{
class BoundQuery
{
public:
  // Throws cim::Error (15).
  BoundQuery(const Query& query, std::shared_ptr<const ClassDecl> decl);
  ~BoundQuery();
  BoundQuery(BoundQuery&&) noexcept;
  BoundQuery& operator=(BoundQuery&&) noexcept;

  const std::shared_ptr<const ClassDecl>& Class() const { return m_decl; }
  bool Matches(const Instance& instance) const;
  // Whether the property (by index in the declaration) keeps its value in results.
  bool Keeps(std::size_t propertyIndex) const { return m_keep[propertyIndex]; }
  // Makes unselected, non-key properties NULL (and clears their forced read failures).
  void Project(Instance& instance) const;

  struct Node;

private:
  std::shared_ptr<const ClassDecl> m_decl;
  std::vector<bool> m_keep;
  bool m_keepsAll = true;
  std::unique_ptr<Node> m_where;
};

// True if the property carries the qualifier "Key" with a true value.
bool IsKey(const PropertyDecl& property);
} // namespace cim::wql
