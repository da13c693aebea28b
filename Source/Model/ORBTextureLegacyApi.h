#ifndef ORBTEXTURELEGACYAPI_H
#define ORBTEXTURELEGACYAPI_H

#include <cstdint>

namespace orbtexture
{

// The graphics API a legacy .orb file is written for; it selects the part of
// the legacy pixel enumeration used. Values 1, 2 and 4 share one mapping, 3
// and 5 another; 6 and 7 have one each. 0 and values above 7 map nothing.
enum ELegacyApi : uint32_t
{
    eLegacyApiNone = 0,
    eLegacyApi1 = 1,
    eLegacyApi2 = 2,
    eLegacyApi3 = 3,
    eLegacyApi4 = 4,
    eLegacyApi5 = 5,
    eLegacyApi6 = 6,
    eLegacyApi7 = 7,
    eNumLegacyApis
};

} // namespace orbtexture

#endif
