#include "TPM/TPMKeyBlob.h"

#include <tss2/tss2_mu.h>

#include <string>
#include <utility>

#include "SSHWire/WireError.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {
namespace {

constexpr size_t kCoordinateSize = 32;

// Unmarshals exactly the whole of `bytes` into `out`.
template <typename T, typename Unmarshal>
bool unmarshalWhole(ByteView bytes, T& out, Unmarshal unmarshal) {
  size_t offset = 0;
  if (unmarshal(bytes.data(), bytes.size(), &offset, &out) != TSS2_RC_SUCCESS) return false;
  return offset == bytes.size();
}

template <typename T, typename Marshal>
Bytes marshal(const T& value, Marshal marshalFunction) {
  Bytes out(sizeof(T) + 2);
  size_t offset = 0;
  if (marshalFunction(&value, out.data(), out.size(), &offset) != TSS2_RC_SUCCESS) return {};
  out.resize(offset);
  return out;
}

bool isP256SigningKey(const TPMT_PUBLIC& area) {
  const TPMS_ECC_PARMS& ecc = area.parameters.eccDetail;
  return area.type == TPM2_ALG_ECC && area.nameAlg == TPM2_ALG_SHA256 &&
         (area.objectAttributes & TPMA_OBJECT_SIGN_ENCRYPT) != 0 &&
         (area.objectAttributes & TPMA_OBJECT_DECRYPT) == 0 && ecc.curveID == TPM2_ECC_NIST_P256 &&
         ecc.scheme.scheme == TPM2_ALG_ECDSA &&
         ecc.scheme.details.ecdsa.hashAlg == TPM2_ALG_SHA256 &&
         area.unique.ecc.x.size <= kCoordinateSize && area.unique.ecc.y.size <= kCoordinateSize;
}

void appendPadded(Bytes& out, const TPM2B_ECC_PARAMETER& coordinate) {
  out.insert(out.end(), kCoordinateSize - coordinate.size, 0);
  out.insert(out.end(), coordinate.buffer, coordinate.buffer + coordinate.size);
}

}  // namespace

SecureBytes encodeTPMKeyBlob(const TPM2B_PUBLIC& publicPart, const TPM2B_PRIVATE& privatePart) {
  WireWriter writer;
  writer.writeString(std::string(kTPMKeyBlobMagic));
  writer.writeString(marshal(publicPart, Tss2_MU_TPM2B_PUBLIC_Marshal));
  writer.writeString(marshal(privatePart, Tss2_MU_TPM2B_PRIVATE_Marshal));
  Bytes bytes = std::move(writer).take();
  return SecureBytes::adopt(bytes);
}

std::optional<TPMKeyBlob> decodeTPMKeyBlob(ByteView bytes) {
  try {
    WireReader reader(bytes);
    const ByteView magic = reader.readStringView();
    if (std::string_view(reinterpret_cast<const char*>(magic.data()), magic.size()) !=
        kTPMKeyBlobMagic)
      return std::nullopt;
    TPMKeyBlob blob;
    if (!unmarshalWhole(reader.readStringView(), blob.publicPart, Tss2_MU_TPM2B_PUBLIC_Unmarshal) ||
        !unmarshalWhole(reader.readStringView(), blob.privatePart, Tss2_MU_TPM2B_PRIVATE_Unmarshal))
      return std::nullopt;
    reader.expectEnd();
    if (!isP256SigningKey(blob.publicPart.publicArea)) return std::nullopt;
    return blob;
  } catch (const WireError&) {
    return std::nullopt;
  }
}

std::optional<Bytes> p256Point(const TPM2B_PUBLIC& publicPart) {
  if (!isP256SigningKey(publicPart.publicArea)) return std::nullopt;
  Bytes point{0x04};
  appendPadded(point, publicPart.publicArea.unique.ecc.x);
  appendPadded(point, publicPart.publicArea.unique.ecc.y);
  return point;
}

}  // namespace quorvane
