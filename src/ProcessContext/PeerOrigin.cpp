#include "ProcessContext/PeerOrigin.h"

#include "ProcessContext/JSONInteger.h"

namespace quorvane {

JSON toJSON(const PeerOrigin& origin) {
  JSON chain = JSON::array();
  for (const ProcessInfoEntry& entry : origin.chain) chain.push_back(toJSON(entry));
  return {{"peerPID", origin.peerPID},
          {"peerPIDVersion", origin.peerPIDVersion},
          {"peerUID", origin.peerUID},
          {"chain", std::move(chain)}};
}

PeerOrigin decodePeerOrigin(const JSONReader& reader) {
  PeerOrigin origin;
  origin.peerPID = decodeInteger<int32_t>(reader.required("peerPID"));
  origin.peerPIDVersion = decodeInteger<int32_t>(reader.required("peerPIDVersion"));
  origin.peerUID = decodeInteger<uint32_t>(reader.required("peerUID"));
  origin.chain = reader.required("chain").arrayOf<ProcessInfoEntry>(decodeProcessInfoEntry);
  return origin;
}

}  // namespace quorvane
