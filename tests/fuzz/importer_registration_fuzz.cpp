// A bundle's Info.plist as the registry reads it: any property list, any shapes of values.
#include <cstdint>

#include "base/property_list.h"
#include "fuzz_support.h"
#include "importers/bundle_registry.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  std::optional<ulvek::PropertyValue> info = ulvek::propertyListFromBytes({data, size});
  if (!info || !info->dictionary()) return 0;
  ulvek::BundleRegistry bundles(nullptr);
  bundles.addBundleToMDImporters(*info->dictionary(), "/fuzz/Bundle.mdimporter");
  bundles.addBundleToMDImporters(*info->dictionary(), "/fuzz/_TagsMail.mdimporter");
  return 0;
}
