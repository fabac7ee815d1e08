// SPDX-License-Identifier: MIT
#include "host/registration_properties.h"

#include "host/text.h"

namespace quorel {

namespace {

constexpr APO_REG_PROPERTIES describe()
{
    APO_REG_PROPERTIES properties{};
    properties.clsid = CLSID_QUOREL;
    properties.Flags = static_cast<APO_FLAG>(APO_FLAG_INPLACE | APO_FLAG_SAMPLESPERFRAME_MUST_MATCH |
                                             APO_FLAG_FRAMESPERSECOND_MUST_MATCH | APO_FLAG_BITSPERSAMPLE_MUST_MATCH);
    fill(properties.szFriendlyName, "QUOREL");
    fill(properties.szCopyrightInfo, "Copyright (C) VEDRA");
    properties.u32MajorVersion = 1;
    properties.u32MinorVersion = 3;
    properties.u32MinInputConnections = 1;
    properties.u32MaxInputConnections = 1;
    properties.u32MinOutputConnections = 1;
    properties.u32MaxOutputConnections = 1;
    properties.u32MaxInstances = 0xFFFFFFFF;
    properties.u32NumAPOInterfaces = 1;
    properties.iidAPOInterfaceList[0] = IID_IQUORELSFX;
    return properties;
}

} // namespace

constinit const APO_REG_PROPERTIES registrationProperties = describe();

} // namespace quorel
