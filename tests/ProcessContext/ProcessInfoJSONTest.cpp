#include <gtest/gtest.h>

#include <string>

#include "ProcessContext/PeerOrigin.h"

namespace quorvane {
namespace {

PeerOrigin sampleOrigin() {
  ProcessInfoEntry peer;
  peer.pid = 4242;
  peer.path = "/usr/bin/ssh";
  peer.name = "ssh";
  peer.arguments = {"ssh", "host"};
  peer.workingDirectory = "/home/me";
  peer.signingIdentifier = "/usr/bin/ssh";
  peer.teamIdentifier = "system";
  peer.signatureValid = true;
  peer.appleSigned = true;
  peer.appBundlePath = "/Applications/Example.app";
  ProcessInfoEntry parent;
  parent.pid = 4000;
  parent.path = "?";
  parent.name = "sshd";
  return {4242, -7, 1000, {peer, parent}};
}

TEST(PeerOriginJSON, RoundTripsAndLeavesOutAbsentFields) {
  JSON json = toJSON(sampleOrigin());
  EXPECT_EQ(json.at("chain").at(1).dump(),
            R"({"arguments":[],"name":"sshd","path":"?","pid":4000})");
  EXPECT_EQ(json.at("chain").at(0).size(), 10u);
  EXPECT_EQ(decodePeerOrigin(JSONReader(parseJSON(json.dump()))), sampleOrigin());
}

struct BadCase {
  std::string name;
  std::string pointer;        // the value to replace or remove, as a JSON pointer
  std::optional<JSON> value;  // nothing: remove the key
  DecodingError::Kind kind;
};

void PrintTo(const BadCase& c, std::ostream* out) { *out << c.name; }

class PeerOriginJSONRejects : public ::testing::TestWithParam<BadCase> {};

TEST_P(PeerOriginJSONRejects, WithTheRightKind) {
  JSON json = toJSON(sampleOrigin());
  JSON::json_pointer pointer(GetParam().pointer);
  if (GetParam().value) {
    json[pointer] = *GetParam().value;
  } else {
    json[pointer.parent_pointer()].erase(pointer.back());
  }
  try {
    decodePeerOrigin(JSONReader(json));
    ADD_FAILURE() << "decoded";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.kind(), GetParam().kind) << error.what();
  }
}

using K = DecodingError::Kind;

INSTANTIATE_TEST_SUITE_P(
    Cases, PeerOriginJSONRejects,
    ::testing::Values(
        BadCase{"NoPeerPID", "/peerPID", std::nullopt, K::keyNotFound},
        BadCase{"NoVersion", "/peerPIDVersion", std::nullopt, K::keyNotFound},
        BadCase{"NoUID", "/peerUID", std::nullopt, K::keyNotFound},
        BadCase{"NoChain", "/chain", std::nullopt, K::keyNotFound},
        BadCase{"NoEntryPID", "/chain/0/pid", std::nullopt, K::keyNotFound},
        BadCase{"NoEntryPath", "/chain/0/path", std::nullopt, K::keyNotFound},
        BadCase{"NoEntryName", "/chain/0/name", std::nullopt, K::keyNotFound},
        BadCase{"NoArguments", "/chain/0/arguments", std::nullopt, K::keyNotFound},
        BadCase{"PIDPast32Bits", "/peerPID", JSON(2147483648LL), K::dataCorrupted},
        BadCase{"NegativeUID", "/peerUID", JSON(-1), K::dataCorrupted},
        BadCase{"UIDPast32Bits", "/peerUID", JSON(4294967296LL), K::dataCorrupted},
        BadCase{"EntryPIDPast32Bits", "/chain/1/pid", JSON(-2147483649LL), K::dataCorrupted},
        BadCase{"ValidAsText", "/chain/0/signatureValid", JSON("true"), K::typeMismatch}));

TEST(PeerOriginJSON, AcceptsTheWholeUserIdentifierRange) {
  JSON json = toJSON(sampleOrigin());
  json["peerUID"] = 4294967295LL;
  EXPECT_EQ(decodePeerOrigin(JSONReader(json)).peerUID, 4294967295u);
}

}  // namespace
}  // namespace quorvane
