#pragma once

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "Base/Hex.h"
#include "support/TestSupport.h"

namespace quorvane::testing {

// A JSON vector file under tests/data. Parameterised suites load their cases while the test
// program starts, so a missing or broken file throws and stops the program with its name.
inline nlohmann::json loadVectorFile(const std::string& name) {
  std::ifstream stream(testDataPath(name));
  if (!stream) throw std::runtime_error("cannot read test data " + name);
  return nlohmann::json::parse(stream);
}

// The bytes of a hex string member (either case); throws when it is missing or not hex.
inline Bytes hexField(const nlohmann::json& object, const std::string& key) {
  auto bytes = hexDecode(object.at(key).get<std::string>());
  if (!bytes) throw std::runtime_error("member " + key + " is not hex");
  return *bytes;
}

}  // namespace quorvane::testing
