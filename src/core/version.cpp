#include "nuxzo.h"
#include "version_config.h"

namespace {

// __DATE__ is "Mmm dd yyyy" with a single-digit day padded by a space, which
// is exactly the record's date format.
constexpr NuxVersionRecord kVersion = {
    NUXZO_VERSION_MAJOR,
    NUXZO_VERSION_MINOR,
    NUXZO_VERSION_UPDATE,
    NUXZO_BUILD_REVISION,
    {'q', '5', '\0', '\0'},
    "nuxZO AVX (q5)",
    NUXZO_VERSION_STRING,
    __DATE__,
};

}  // namespace

extern "C" NUX_API const NuxVersionRecord* nuxzoGetLibVersion(void) { return &kVersion; }
