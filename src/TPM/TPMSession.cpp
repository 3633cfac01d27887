#include "TPM/TPMSession.h"

#include <tss2/tss2_esys.h>
#include <tss2/tss2_mu.h>
#include <tss2/tss2_rc.h>
#include <tss2/tss2_tctildr.h>

#include <algorithm>
#include <cstring>

#include "KeyStore/KeyStoreError.h"
#include "TPM/TPMInnerWrapper.h"
#include "TPM/TPMKeyBlob.h"
#include "TPM/TPMResult.h"

namespace quorvane {
namespace {

constexpr size_t kCoordinateSize = 32;
// The TPM takes an object's authorization value up to the size of its name algorithm's digest.
constexpr size_t kMaxPINBytes = 32;

// Frees what ESYS allocated for an answer.
template <typename T>
struct EsysFree {
  void operator()(T* pointer) const { Esys_Free(pointer); }
};
template <typename T>
using EsysPointer = std::unique_ptr<T, EsysFree<T>>;

// The TCG's standard storage key template (ECC P-256, AES-128-CFB): the same TPM derives the same
// key from it in every process, so keys wrapped by one agent load in the next.
TPM2B_PUBLIC primaryTemplate() {
  TPM2B_PUBLIC result{};
  TPMT_PUBLIC& area = result.publicArea;
  area.type = TPM2_ALG_ECC;
  area.nameAlg = TPM2_ALG_SHA256;
  area.objectAttributes = TPMA_OBJECT_FIXEDTPM | TPMA_OBJECT_FIXEDPARENT |
                          TPMA_OBJECT_SENSITIVEDATAORIGIN | TPMA_OBJECT_USERWITHAUTH |
                          TPMA_OBJECT_NODA | TPMA_OBJECT_RESTRICTED | TPMA_OBJECT_DECRYPT;
  TPMS_ECC_PARMS& ecc = area.parameters.eccDetail;
  ecc.symmetric.algorithm = TPM2_ALG_AES;
  ecc.symmetric.keyBits.aes = 128;
  ecc.symmetric.mode.aes = TPM2_ALG_CFB;
  ecc.scheme.scheme = TPM2_ALG_NULL;
  ecc.curveID = TPM2_ECC_NIST_P256;
  ecc.kdf.scheme = TPM2_ALG_NULL;
  area.unique.ecc.x.size = kCoordinateSize;
  area.unique.ecc.y.size = kCoordinateSize;
  return result;
}

// A P-256 ECDSA-SHA-256 signing key that never leaves this TPM. A key without a PIN is exempt
// from dictionary-attack protection: nothing can be guessed, and failed PINs of other keys must
// not lock it out.
TPM2B_PUBLIC signingKeyTemplate(bool withPIN) {
  TPM2B_PUBLIC result{};
  TPMT_PUBLIC& area = result.publicArea;
  area.type = TPM2_ALG_ECC;
  area.nameAlg = TPM2_ALG_SHA256;
  area.objectAttributes = TPMA_OBJECT_FIXEDTPM | TPMA_OBJECT_FIXEDPARENT |
                          TPMA_OBJECT_SENSITIVEDATAORIGIN | TPMA_OBJECT_USERWITHAUTH |
                          TPMA_OBJECT_SIGN_ENCRYPT;
  if (!withPIN) area.objectAttributes |= TPMA_OBJECT_NODA;
  TPMS_ECC_PARMS& ecc = area.parameters.eccDetail;
  ecc.symmetric.algorithm = TPM2_ALG_NULL;
  ecc.scheme.scheme = TPM2_ALG_ECDSA;
  ecc.scheme.details.ecdsa.hashAlg = TPM2_ALG_SHA256;
  ecc.curveID = TPM2_ECC_NIST_P256;
  ecc.kdf.scheme = TPM2_ALG_NULL;
  return result;
}

// A PIN as an authorization value; wiped by the caller's guard.
TPM2B_AUTH authValue(const SecureBytes& pin) {
  TPM2B_AUTH auth{};
  if (pin.size() > kMaxPINBytes)
    throw KeyStoreError::accessControl("the PIN is longer than " + std::to_string(kMaxPINBytes) +
                                       " bytes");
  auth.size = static_cast<uint16_t>(pin.size());
  std::copy(pin.data(), pin.data() + pin.size(), auth.buffer);
  return auth;
}

// Wipes a structure that held a PIN when the scope ends.
template <typename T>
struct WipeOnExit {
  T& value;
  ~WipeOnExit() { secureWipe(&value, sizeof value); }
};

void appendPadded(Bytes& out, const TPM2B_ECC_PARAMETER& value) {
  const size_t size = std::min<size_t>(value.size, kCoordinateSize);
  out.insert(out.end(), kCoordinateSize - size, 0);
  out.insert(out.end(), value.buffer, value.buffer + size);
}

}  // namespace

struct TPMSession::State {
  TSS2_TCTI_CONTEXT* tcti = nullptr;
  ESYS_CONTEXT* esys = nullptr;
  ESYS_TR primary = ESYS_TR_NONE;
  bool broken = false;

  ~State() {
    if (esys != nullptr) {
      if (primary != ESYS_TR_NONE) Esys_FlushContext(esys, primary);
      Esys_Finalize(&esys);
    }
    if (tcti != nullptr) Tss2_TctiLdr_Finalize(&tcti);
  }

  // Throws for a failed command; a failure of the connection marks the session broken.
  void check(TSS2_RC rc, const char* command) {
    if (rc == TSS2_RC_SUCCESS) return;
    if (isConnectionFailure(rc)) broken = true;
    throw KeyStoreError::hardwareFailed(describeTPMResult(rc, command));
  }

  // Flushes a transient object or session when the scope ends.
  struct Flush {
    State& state;
    ESYS_TR handle;
    ~Flush() {
      if (handle != ESYS_TR_NONE) Esys_FlushContext(state.esys, handle);
    }
  };

  // A salted HMAC session whose parameters travel encrypted (AES-128-CFB) both ways: an
  // authorization value is never sent in the clear and cannot be learnt from the bus.
  ESYS_TR startSaltedSession() {
    TPMT_SYM_DEF symmetric{};
    symmetric.algorithm = TPM2_ALG_AES;
    symmetric.keyBits.aes = 128;
    symmetric.mode.aes = TPM2_ALG_CFB;
    ESYS_TR session = ESYS_TR_NONE;
    check(
        Esys_StartAuthSession(esys, primary, ESYS_TR_NONE, ESYS_TR_NONE, ESYS_TR_NONE, ESYS_TR_NONE,
                              nullptr, TPM2_SE_HMAC, &symmetric, TPM2_ALG_SHA256, &session),
        "StartAuthSession");
    const TPMA_SESSION attributes = TPMA_SESSION_DECRYPT | TPMA_SESSION_ENCRYPT;
    const TSS2_RC rc = Esys_TRSess_SetAttributes(esys, session, attributes, 0xff);
    if (rc != TSS2_RC_SUCCESS) {
      Esys_FlushContext(esys, session);
      check(rc, "TRSess_SetAttributes");
    }
    return session;
  }
};

TPMSession::TPMSession(const std::string& tcti) : state_(std::make_unique<State>()) {
  TSS2_RC rc = Tss2_TctiLdr_Initialize(tcti.c_str(), &state_->tcti);
  if (rc != TSS2_RC_SUCCESS)
    throw KeyStoreError::hardwareFailed("cannot connect to the TPM at “" + tcti +
                                        "”: " + Tss2_RC_Decode(rc));
  rc = Esys_Initialize(&state_->esys, state_->tcti, nullptr);
  if (rc != TSS2_RC_SUCCESS)
    throw KeyStoreError::hardwareFailed("cannot talk to the TPM at “" + tcti +
                                        "”: " + Tss2_RC_Decode(rc));
}

TPMSession::~TPMSession() = default;

bool TPMSession::broken() const { return state_->broken; }

void TPMSession::ensurePrimary() {
  if (state_->primary != ESYS_TR_NONE) return;
  TPM2B_SENSITIVE_CREATE sensitive{};
  TPM2B_PUBLIC inPublic = primaryTemplate();
  TPM2B_DATA outsideInfo{};
  TPML_PCR_SELECTION creationPCR{};
  ESYS_TR primary = ESYS_TR_NONE;
  state_->check(Esys_CreatePrimary(state_->esys, ESYS_TR_RH_OWNER, ESYS_TR_PASSWORD, ESYS_TR_NONE,
                                   ESYS_TR_NONE, &sensitive, &inPublic, &outsideInfo, &creationPCR,
                                   &primary, nullptr, nullptr, nullptr, nullptr),
                "CreatePrimary (the storage key under the owner hierarchy)");
  state_->primary = primary;
}

TPMSession::NewKey TPMSession::createKey(const SecureBytes* pin) {
  ensurePrimary();
  TPM2B_SENSITIVE_CREATE sensitive{};
  WipeOnExit<TPM2B_SENSITIVE_CREATE> wipe{sensitive};
  if (pin != nullptr) sensitive.sensitive.userAuth = authValue(*pin);
  TPM2B_PUBLIC inPublic = signingKeyTemplate(pin != nullptr);
  TPM2B_DATA outsideInfo{};
  TPML_PCR_SELECTION creationPCR{};

  const ESYS_TR session = state_->startSaltedSession();
  State::Flush flushSession{*state_, session};
  TPM2B_PRIVATE* outPrivate = nullptr;
  TPM2B_PUBLIC* outPublic = nullptr;
  const TSS2_RC rc = Esys_Create(state_->esys, state_->primary, session, ESYS_TR_NONE, ESYS_TR_NONE,
                                 &sensitive, &inPublic, &outsideInfo, &creationPCR, &outPrivate,
                                 &outPublic, nullptr, nullptr, nullptr);
  EsysPointer<TPM2B_PRIVATE> privatePart(outPrivate);
  EsysPointer<TPM2B_PUBLIC> publicPart(outPublic);
  state_->check(rc, "Create (a P-256 signing key)");

  std::optional<Bytes> point = p256Point(*publicPart);
  if (!point) throw KeyStoreError::hardwareFailed("the TPM made a key that is not P-256 ECDSA");
  return {std::move(*point), encodeTPMKeyBlob(*publicPart, *privatePart)};
}

TPMSession::NewKey TPMSession::importKey(ByteView scalar, ByteView point) {
  if (scalar.size() != kCoordinateSize || point.size() != 1 + 2 * kCoordinateSize ||
      point[0] != 0x04)
    throw KeyStoreError::unsupported("only P-256 keys can be imported into the TPM");
  ensurePrimary();
  TPM2B_PUBLIC inPublic = signingKeyTemplate(false);
  TPMT_PUBLIC& area = inPublic.publicArea;
  // Imported objects cannot claim to have been made in this TPM under this parent.
  area.objectAttributes &=
      ~(TPMA_OBJECT_FIXEDTPM | TPMA_OBJECT_FIXEDPARENT | TPMA_OBJECT_SENSITIVEDATAORIGIN);
  area.unique.ecc.x.size = kCoordinateSize;
  std::memcpy(area.unique.ecc.x.buffer, point.data() + 1, kCoordinateSize);
  area.unique.ecc.y.size = kCoordinateSize;
  std::memcpy(area.unique.ecc.y.buffer, point.data() + 1 + kCoordinateSize, kCoordinateSize);

  TPM2B_SENSITIVE sensitive{};
  WipeOnExit<TPM2B_SENSITIVE> wipeSensitive{sensitive};
  sensitive.sensitiveArea.sensitiveType = TPM2_ALG_ECC;
  sensitive.sensitiveArea.sensitive.ecc.size = kCoordinateSize;
  std::memcpy(sensitive.sensitiveArea.sensitive.ecc.buffer, scalar.data(), kCoordinateSize);
  TPMInnerWrapped wrapped = wrapForImport(sensitive, inPublic);
  WipeOnExit<TPMInnerWrapped> wipeWrapped{wrapped};
  // No outer wrapper: nothing was duplicated from another TPM.
  TPM2B_ENCRYPTED_SECRET inSymSeed{};
  const ESYS_TR session = state_->startSaltedSession();
  State::Flush flushSession{*state_, session};
  TPM2B_PRIVATE* outPrivate = nullptr;
  const TSS2_RC rc = Esys_Import(state_->esys, state_->primary, session, ESYS_TR_NONE, ESYS_TR_NONE,
                                 &wrapped.encryptionKey, &inPublic, &wrapped.duplicate, &inSymSeed,
                                 &wrapped.symmetric, &outPrivate);
  EsysPointer<TPM2B_PRIVATE> privatePart(outPrivate);
  state_->check(rc, "Import (a P-256 key)");
  return {Bytes(point.begin(), point.end()), encodeTPMKeyBlob(inPublic, *privatePart)};
}

Bytes TPMSession::sign(ByteView blob, ByteView digest, const SecureBytes* pin) {
  std::optional<TPMKeyBlob> key = decodeTPMKeyBlob(blob);
  if (!key) throw KeyStoreError::invalidSecret({});
  // A try without the PIN of a PIN key would count as a failed one with the TPM.
  if (pin == nullptr && (key->publicPart.publicArea.objectAttributes & TPMA_OBJECT_NODA) == 0)
    throw KeyStoreError::accessControl("the key signs only with its PIN");
  ensurePrimary();

  ESYS_TR loaded = ESYS_TR_NONE;
  const TSS2_RC loadResult =
      Esys_Load(state_->esys, state_->primary, ESYS_TR_PASSWORD, ESYS_TR_NONE, ESYS_TR_NONE,
                &key->privatePart, &key->publicPart, &loaded);
  // A key wrapped by another TPM (or another storage key) fails the TPM's integrity check.
  if (loadResult != TSS2_RC_SUCCESS && !isConnectionFailure(loadResult))
    throw KeyStoreError::invalidSecret({});
  state_->check(loadResult, "Load");
  State::Flush flushKey{*state_, loaded};

  ESYS_TR authorization = ESYS_TR_PASSWORD;
  ESYS_TR session = ESYS_TR_NONE;
  if (pin != nullptr) {
    TPM2B_AUTH auth = authValue(*pin);
    WipeOnExit<TPM2B_AUTH> wipe{auth};
    state_->check(Esys_TR_SetAuth(state_->esys, loaded, &auth), "TR_SetAuth");
    session = state_->startSaltedSession();
    authorization = session;
  }
  State::Flush flushSession{*state_, session};

  TPM2B_DIGEST toSign{};
  if (digest.size() != kCoordinateSize)
    throw KeyStoreError::hardwareFailed("a digest of " + std::to_string(digest.size()) + " bytes");
  toSign.size = static_cast<uint16_t>(digest.size());
  std::memcpy(toSign.buffer, digest.data(), digest.size());
  TPMT_SIG_SCHEME scheme{};
  scheme.scheme = TPM2_ALG_ECDSA;
  scheme.details.ecdsa.hashAlg = TPM2_ALG_SHA256;
  TPMT_TK_HASHCHECK validation{};
  validation.tag = TPM2_ST_HASHCHECK;
  validation.hierarchy = TPM2_RH_NULL;
  TPMT_SIGNATURE* signature = nullptr;
  const TSS2_RC rc = Esys_Sign(state_->esys, loaded, authorization, ESYS_TR_NONE, ESYS_TR_NONE,
                               &toSign, &scheme, &validation, &signature);
  EsysPointer<TPMT_SIGNATURE> owned(signature);
  switch (authRefusalOf(rc)) {
    case TPMAuthRefusal::wrongPIN: throw TPMAuthRefused{false};
    case TPMAuthRefusal::lockedOut: throw TPMAuthRefused{true};
    case TPMAuthRefusal::none: break;
  }
  state_->check(rc, "Sign");
  if (owned->sigAlg != TPM2_ALG_ECDSA)
    throw KeyStoreError::hardwareFailed("the TPM answered with another kind of signature");
  Bytes raw;
  appendPadded(raw, owned->signature.ecdsa.signatureR);
  appendPadded(raw, owned->signature.ecdsa.signatureS);
  return raw;
}

TPMSession::Lockout TPMSession::lockout() {
  TPMI_YES_NO more = TPM2_NO;
  TPMS_CAPABILITY_DATA* data = nullptr;
  const TSS2_RC rc =
      Esys_GetCapability(state_->esys, ESYS_TR_NONE, ESYS_TR_NONE, ESYS_TR_NONE,
                         TPM2_CAP_TPM_PROPERTIES, TPM2_PT_PERMANENT, 18, &more, &data);
  EsysPointer<TPMS_CAPABILITY_DATA> owned(data);
  state_->check(rc, "GetCapability");
  Lockout result;
  const TPML_TAGGED_TPM_PROPERTY& properties = owned->data.tpmProperties;
  for (uint32_t i = 0; i < properties.count && i < TPM2_MAX_TPM_PROPERTIES; ++i) {
    const TPMS_TAGGED_PROPERTY& property = properties.tpmProperty[i];
    switch (property.property) {
      case TPM2_PT_PERMANENT:
        result.inLockout = (property.value & TPMA_PERMANENT_INLOCKOUT) != 0;
        break;
      case TPM2_PT_LOCKOUT_COUNTER: result.failedTries = property.value; break;
      case TPM2_PT_MAX_AUTH_FAIL: result.maxTries = property.value; break;
      case TPM2_PT_LOCKOUT_INTERVAL: result.intervalSeconds = property.value; break;
      default: break;
    }
  }
  return result;
}

}  // namespace quorvane
