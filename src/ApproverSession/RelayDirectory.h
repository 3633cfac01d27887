#pragma once

#include <string>

#include "RelayClient/RelayCursors.h"
#include "RelayClient/RelayTransport.h"

namespace quorvane {

// A relay client and its cursors, as the directory hands them out.
struct RelayConnection {
  RelayTransport& transport;
  RelayCursors& cursors;  // the client's read positions; the session sets them from its inbox
};

// The relays the approving side talks to, by base URL: each paired computer names its own. The
// command line makes HTTPS clients; tests hand out one in-memory relay. A connection stays valid
// for the directory's life.
class RelayDirectory {
 public:
  virtual ~RelayDirectory() = default;
  virtual RelayConnection connect(const std::string& relayURL) = 0;
};

}  // namespace quorvane
