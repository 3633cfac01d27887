#pragma once

#include <map>
#include <string>

#include "Base/SecureBytes.h"

namespace quorvane {

// One armoured block of a PEM file (RFC 7468, with the RFC 1421 header lines that OpenSSL's
// traditional encrypted keys use):
//
//   -----BEGIN <label>-----
//   Name: value             (optional header lines, e.g. Proc-Type and DEK-Info)
//                           (an optional empty line ending the headers)
//   <base64 lines>
//   -----END <label>-----
struct PEMBlock {
  std::string label;                           // e.g. "RSA PRIVATE KEY"
  std::map<std::string, std::string> headers;  // names and values trimmed of spaces
  SecureBytes body;  // the decoded base64 text; often an unencrypted private key

  friend bool operator==(const PEMBlock&, const PEMBlock&) = default;
};

}  // namespace quorvane
