#include "AgentState/PairingFiles.h"

#include "KeyStore/SealedFile.h"

namespace quorvane {
namespace {

template <typename Record, typename Decode>
std::vector<Record> loadList(const SupportState& support, std::string_view file,
                             std::string_view purpose, Decode decode) {
  try {
    return SealedFile::read(
        support.folder / file, purpose, *support.sealing,
        [&](const JSONReader& reader) { return reader.arrayOf<Record>(decode); });
  } catch (const SealedFileError& error) {
    if (error.kind() == SealedFileErrorKind::missing) return {};
    throw;
  }
}

template <typename Record>
void saveList(const SupportState& support, std::string_view file, std::string_view purpose,
              const std::vector<Record>& records) {
  JSON list = JSON::array();
  for (const Record& record : records) list.push_back(toJSON(record));
  SealedFile::write(list, support.folder / file, purpose, *support.sealing);
}

}  // namespace

std::vector<PairedDevice> loadPairedDevices(const SupportState& support) {
  return loadList<PairedDevice>(support, kPairedDevicesFile, kPairedDevicesPurpose,
                                decodePairedDevice);
}

void savePairedDevices(const SupportState& support, const std::vector<PairedDevice>& devices) {
  saveList(support, kPairedDevicesFile, kPairedDevicesPurpose, devices);
}

std::vector<PairedMac> loadPairedMacs(const SupportState& support) {
  return loadList<PairedMac>(support, kPairedMacsFile, kPairedMacsPurpose, decodePairedMac);
}

void savePairedMacs(const SupportState& support, const std::vector<PairedMac>& macs) {
  saveList(support, kPairedMacsFile, kPairedMacsPurpose, macs);
}

}  // namespace quorvane
