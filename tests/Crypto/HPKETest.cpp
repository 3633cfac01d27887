#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Crypto/HPKE.h"
#include "support/VectorFile.h"

namespace quorvane::crypto {
namespace {

using nlohmann::json;
using testing::hexField;
using testing::loadVectorFile;

struct HPKECase {
  std::string name;
  json vector;
};

std::vector<HPKECase> hpkeCases() {
  std::vector<HPKECase> cases;
  for (const char* file :
       {"rfc9180_base_hkdfsha256_aes256gcm", "hpke_pq_xwing_hkdfsha256_chacha20poly1305",
        "xwing_hkdfsha256_aes256gcm_derived"}) {
    const json vectors = loadVectorFile(std::string("hpke/") + file + ".json");
    for (size_t i = 0; i < vectors.size(); ++i)
      cases.push_back({std::string(file) + "_" + std::to_string(i), vectors[i]});
  }
  return cases;
}

Bytes copyOf(const SecureBytes& secret) {
  return Bytes(secret.view().begin(), secret.view().end());
}

class HPKEVectors : public ::testing::TestWithParam<HPKECase> {};

// From shared_secret and info: the key schedule, then every listed encryption at its sequence
// number. The skipped numbers are sealed and opened with empty messages so that both contexts
// reach each listed number the way a real exchange would.
TEST_P(HPKEVectors, KeyScheduleAndEncryptionsMatch) {
  const json& v = GetParam().vector;
  const auto kemID = v.at("kem_id").get<uint16_t>();
  const auto aead = static_cast<HPKEAEAD>(v.at("aead_id").get<uint16_t>());
  ASSERT_EQ(v.at("mode"), 0);
  ASSERT_EQ(v.at("kdf_id"), kHPKEKDFHKDFSHA256);
  const Bytes info = hexField(v, "info");

  HPKEKeySchedule schedule = hpkeBaseKeySchedule(kemID, aead, hexField(v, "shared_secret"), info);
  EXPECT_EQ(copyOf(schedule.key), hexField(v, "key"));
  EXPECT_EQ(copyOf(schedule.baseNonce), hexField(v, "base_nonce"));
  EXPECT_EQ(copyOf(schedule.exporterSecret), hexField(v, "exporter_secret"));

  HPKESenderContext sender(aead, schedule);
  HPKEReceiverContext receiver(aead, schedule);
  if (kemID == kHPKEKEMXWing) {
    // The whole setup from the keys: the seed gives pkRm, ikmE gives enc, and both ends derive
    // the schedule above.
    std::optional<XWingPrivateKey> recipient = XWingPrivateKey::fromSeed(hexField(v, "skRm"));
    ASSERT_TRUE(recipient);
    EXPECT_EQ(recipient->publicKey().bytes(), hexField(v, "pkRm"));
    std::optional<HPKESender> setup =
        hpkeSetupBaseSender(recipient->publicKey(), info, hexField(v, "ikmE"), aead);
    ASSERT_TRUE(setup);
    EXPECT_EQ(setup->encapsulatedKey, hexField(v, "enc"));
    std::optional<HPKEReceiverContext> opened =
        hpkeSetupBaseReceiver(*recipient, setup->encapsulatedKey, info, aead);
    ASSERT_TRUE(opened);
    sender = std::move(setup->context);
    receiver = std::move(*opened);
  }

  std::map<uint64_t, json> bySequence;
  const json& encryptions = v.at("encryptions");
  for (size_t i = 0; i < encryptions.size(); ++i)
    bySequence[encryptions[i].value("seq", uint64_t{i})] = encryptions[i];
  const uint64_t last = bySequence.rbegin()->first;
  ASSERT_LE(last, 256u);
  for (uint64_t sequence = 0; sequence <= last; ++sequence) {
    auto listed = bySequence.find(sequence);
    if (listed == bySequence.end()) {
      Bytes filler = sender.seal({}, {});
      ASSERT_TRUE(receiver.open({}, filler));
      continue;
    }
    const Bytes aad = hexField(listed->second, "aad"), pt = hexField(listed->second, "pt");
    const Bytes ct = hexField(listed->second, "ct");
    EXPECT_EQ(sender.seal(aad, pt), ct) << "seq " << sequence;
    EXPECT_FALSE(receiver.open(Bytes{0x00}, ct)) << "wrong associated data";
    EXPECT_EQ(receiver.open(aad, ct), pt) << "seq " << sequence;
  }
}

INSTANTIATE_TEST_SUITE_P(Vectors, HPKEVectors, ::testing::ValuesIn(hpkeCases()),
                         [](const auto& test) { return test.param.name; });

TEST(HPKE, ReceiverWithAnotherInfoOrKeyOpensNothing) {
  const XWingPrivateKey recipient = XWingPrivateKey::generate();
  const Bytes info = bytesOf("info");
  std::optional<HPKESender> sender = hpkeSetupBaseSender(recipient.publicKey(), info);
  ASSERT_TRUE(sender);
  const Bytes sealed = sender->context.seal({}, bytesOf("message"));

  EXPECT_FALSE(
      hpkeSetupBaseReceiver(recipient, ByteView(sender->encapsulatedKey).first(1119), info));
  auto otherInfo = hpkeSetupBaseReceiver(recipient, sender->encapsulatedKey, bytesOf("infO"));
  ASSERT_TRUE(otherInfo);
  EXPECT_FALSE(otherInfo->open({}, sealed));
  auto otherKey = hpkeSetupBaseReceiver(XWingPrivateKey::generate(), sender->encapsulatedKey, info);
  ASSERT_TRUE(otherKey);
  EXPECT_FALSE(otherKey->open({}, sealed));

  auto receiver = hpkeSetupBaseReceiver(recipient, sender->encapsulatedKey, info);
  ASSERT_TRUE(receiver);
  EXPECT_EQ(receiver->open({}, sealed), bytesOf("message"));
  EXPECT_FALSE(receiver->open({}, sealed)) << "a replay is under the next sequence number";
}

}  // namespace
}  // namespace quorvane::crypto
