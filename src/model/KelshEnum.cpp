#include "KelshEnum.h"

#include "CUtil.h"

CONFIRM_TYPE_ENUM KelshEnum::resolveConformType(std::string keyword) {
    CUtil::toUpper(keyword);
    if (keyword == "INHERITANCE") {
        return INHERITANCE;
    }
    if (keyword == "ONCE") {
        return ONCE;
    }
    if (keyword == "EACH") {
        return EACH;
    }
    return NO;
}
