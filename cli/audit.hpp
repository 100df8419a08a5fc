// What `qzxl audit` finds in a workbook, for the commands that show it: the audit's own
// report and the model map.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "host/host.hpp"
#include "qzxl/qzxl.hpp"

namespace qzcli {

/// One entry of the audit: a cell or a defined name.
struct Finding {
  std::string where;   ///< a cell ("Income!C7") or a name
  std::string what;    ///< the formula, value or reference
  std::string detail;  ///< the numbers found, the row's formula, ...
  std::string sheet;   ///< the cell's sheet as it is named (empty for a name)
  std::string cell;    ///< the cell's address on its sheet ("C7"; empty for a name)
};

/// A kind of finding and what was found of it.
struct Group {
  const char* key;
  const char* title;
  const char* detail_title;
  std::vector<Finding> items;
};

enum GroupId { kPartial, kExternal, kSheet, kOvertyped, kDeadNames, kTags, kGroups };

using Groups = std::array<Group, kGroups>;

/// The groups, empty, in the order they are reported.
Groups make_groups();

/// Audits every worksheet and the names of `book`; `sheets` gets how many worksheets were
/// read.
Groups audit_workbook(const qz::iXLLibPublicPtr& lib, const qz::host::WorkbookPtr& book,
                      size_t& sheets);

}  // namespace qzcli
