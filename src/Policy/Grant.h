#pragma once

#include <string>

#include "Base/Date.h"
#include "Base/JSONReader.h"
#include "Policy/RequestPurpose.h"

namespace quorvane {

// A temporary permission left by an approval for a window: the same program may use the same key
// for the same purpose without asking until `until`.
struct Grant {
  std::string keyFingerprint;
  // The purpose that was approved.
  RequestPurpose purpose;
  // The approved program (see `treeKey`).
  std::string treeKey;
  // The end of the window; at this date the grant no longer allows.
  Date until;

  friend bool operator==(const Grant&, const Grant&) = default;
};

// JSON form: an object with the keys "keyFingerprint", "purpose", "treeKey", "until"; "until" is
// written and read as `dateEncoding` says (the file or message that holds the grant decides).
JSON toJSON(const Grant& grant, DateEncoding dateEncoding = DateEncoding::iso8601);
Grant decodeGrant(const JSONReader& reader, DateEncoding dateEncoding = DateEncoding::iso8601);

}  // namespace quorvane
