#include "Platform/Desktop/Authorization/PolicyFile.h"

#include "Platform/FileContents.h"

#include <QString>

namespace kelvane {
namespace {

constexpr mode_t readableByAll = 0644;

// A CDATA section needs no character references; polkit drops the text before each of these.
QString asCharacterData(const std::string& text) {
    return "<![CDATA[" + QString::fromStdString(text).replace("]]>", "]]]]><![CDATA[>") + "]]>";
}

} // namespace

std::string policyText(const RightDefinition& right) {
    return QString(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE policyconfig PUBLIC "-//freedesktop//DTD PolicyKit Policy Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/PolicyKit/1/policyconfig.dtd">
<policyconfig>
  <action id="%1">
    <description>%2</description>
    <message>%3</message>
    <defaults>
      <allow_any>auth_admin_keep</allow_any>
      <allow_inactive>auth_admin_keep</allow_inactive>
      <allow_active>auth_admin_keep</allow_active>
    </defaults>
  </action>
</policyconfig>
)")
        .arg(QString::fromStdString(right.name).toHtmlEscaped(), asCharacterData(right.description),
             asCharacterData(right.message))
        .toStdString();
}

std::string installPolicy(const RightDefinition& right, const std::string& folder) {
    const std::string text = policyText(right);
    const Data bytes(text.begin(), text.end());
    return replaceFileAtomically(folder + '/' + right.name + ".policy", bytes, readableByAll).reason;
}

} // namespace kelvane
