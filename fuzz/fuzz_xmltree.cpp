// The library's reply parser against Qt's: for any text, the tree it builds (or its
// refusal) must be Qt's own. Aborts with both trees when they differ.
#include "fuzzCommon.h"

#include "domTree.h"

#include <onvifTypes/onvifResponse.h>

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzCommon::takeSelector(data, size); // unused; keeps the shared XML seeds readable
    const QString text = FuzzCommon::replyText(data, size);
    bool tooDeep = false;
    const QString expected = parsedByQt(text, 512, &tooDeep);
    const OnvifResponse response(text);
    // Past the library's nesting limit Qt's tree is not built; the library refuses.
    const QString built = tooDeep && response.document().documentElement().isNull()
        ? QString()
        : domTree(response.document());
    if (built != expected) {
        std::fprintf(
            stderr, "trees differ\n-- library\n%s-- Qt\n%s", qPrintable(built), qPrintable(expected));
        std::abort();
    }
    return 0;
}
