// Runs ML-KEM-768 key generation, encapsulation and decapsulation (of a valid and of a tampered
// ciphertext, the implicit-rejection path) with every secret input marked undefined for
// valgrind's memcheck. Memcheck then reports each conditional jump and each memory address that
// depends on a secret, which is exactly what a timing side channel needs; the run must be clean.
// Values that are published (the encapsulation key, the ciphertext) are marked defined again
// where they leave the secret computation.
//
// Exit codes: 0 clean and correct, 1 wrong results (memcheck findings give valgrind's own error
// exit code), 77 skipped because the program does not run under valgrind.
#include <cstdio>

#include "Base/Random.h"
#include "Crypto/MLKEM768.h"

#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#define QUORVANE_HAVE_MEMCHECK 1
#endif

using namespace quorvane;
using namespace quorvane::crypto;

int main() {
#ifndef QUORVANE_HAVE_MEMCHECK
  std::puts("valgrind/memcheck.h is missing: constant-time check skipped");
  return 77;
#else
  if (!RUNNING_ON_VALGRIND) {
    std::puts("not running under valgrind: constant-time check skipped");
    return 77;
  }
  auto secret = [](SecureBytes& bytes) { VALGRIND_MAKE_MEM_UNDEFINED(bytes.data(), bytes.size()); };
  auto published = [](const void* data, size_t size) { VALGRIND_MAKE_MEM_DEFINED(data, size); };

  SecureBytes seed(kMLKEMSeedSize);
  fillRandom(std::span(seed.data(), seed.size()));
  secret(seed);
  MLKEM768KeyPair pair = *mlkem768KeyPairFromSeed(seed.view());
  published(pair.encapsulationKey.data(), pair.encapsulationKey.size());
  // The decapsulation key holds the encapsulation key and its hash after the secret vector.
  published(pair.decapsulationKey.data() + 1152, kMLKEM768EncapsulationKeySize + 32);

  SecureBytes m(kMLKEMMessageSize);
  fillRandom(std::span(m.data(), m.size()));
  secret(m);
  MLKEM768Encapsulation sent = *mlkem768EncapsulateDerand(pair.encapsulationKey, m.view());
  published(sent.ciphertext.data(), sent.ciphertext.size());

  SecureBytes received = *mlkem768Decapsulate(pair.decapsulationKey.view(), sent.ciphertext);
  Bytes tampered = sent.ciphertext;
  tampered[17] ^= 0x20;
  SecureBytes rejected = *mlkem768Decapsulate(pair.decapsulationKey.view(), tampered);

  // Comparing the results is the test's business, not the library's: declassify them first.
  for (SecureBytes* each : {&sent.sharedSecret, &received, &rejected})
    published(each->data(), each->size());
  if (!(received == sent.sharedSecret) || rejected == sent.sharedSecret) {
    std::puts("ML-KEM results are wrong");
    return 1;
  }
  std::puts(
      "ML-KEM-768 key generation, encapsulation and decapsulation: no secret-dependent "
      "branch or index");
  return 0;
#endif
}
