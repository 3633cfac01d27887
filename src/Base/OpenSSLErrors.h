#pragma once

#include <string>

namespace quorvane {

// Empties OpenSSL's thread-local error queue and returns its entries joined by "; ".
std::string drainOpenSSLErrors();

}  // namespace quorvane
