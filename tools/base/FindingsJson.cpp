#include "tools/base/FindingsJson.h"

#include "tools/base/Json.h"
#include "tools/base/Text.h"

namespace NimaPost {

Json FindingsJson(const std::vector<Finding>& findings) {
    Json array = Json::array();
    for (const Finding& finding : findings) {
        array.push_back({{"code", finding.code}, {"sentence", ToUtf8(finding.sentence)}});
    }
    return array;
}

Json FindingsJson(const Findings& findings) {
    return {{"damage", FindingsJson(findings.damage)}, {"remarks", FindingsJson(findings.remarks)}};
}

} // namespace NimaPost
