#include "Policy/Grant.h"

namespace quorvane {

JSON toJSON(const Grant& grant, DateEncoding dateEncoding) {
  return {{"keyFingerprint", grant.keyFingerprint},
          {"purpose", toJSON(grant.purpose)},
          {"treeKey", grant.treeKey},
          {"until", encodeDate(grant.until, dateEncoding)}};
}

Grant decodeGrant(const JSONReader& reader, DateEncoding dateEncoding) {
  return Grant{reader.required("keyFingerprint").string(),
               decodeRequestPurpose(reader.required("purpose")),
               reader.required("treeKey").string(), reader.required("until").date(dateEncoding)};
}

}  // namespace quorvane
