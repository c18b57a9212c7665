// The small model that tests and fuzzers work on.
#pragma once

namespace mibctl {

// A gateway's model in small: each kind of parameter once, and two tables.
inline constexpr char kBoxModel[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<dm:document xmlns:dm="urn:broadband-forum-org:cwmp:datamodel-1-4">
  <model name="InternetGatewayDevice:1.0">
    <object name="InternetGatewayDevice." access="readOnly" minEntries="1" maxEntries="1">
      <parameter name="Summary" access="readOnly" activeNotify="forceEnabled">
        <syntax><string><size maxLength="64"/></string><default type="object" value="box"/></syntax>
      </parameter>
    </object>
    <object name="InternetGatewayDevice.Time." access="readOnly" minEntries="1" maxEntries="1">
      <parameter name="Enable" access="readWrite">
        <syntax><boolean/><default type="object" value="false"/></syntax>
      </parameter>
      <parameter name="Server" access="readWrite">
        <syntax><string><size maxLength="16"/></string></syntax>
      </parameter>
      <parameter name="Zone" access="readWrite">
        <syntax>
          <string><enumeration value="UTC"/><enumeration value="CET"/></string>
          <default type="object" value="UTC"/>
        </syntax>
      </parameter>
      <parameter name="Interval" access="readWrite">
        <syntax>
          <unsignedInt><range minInclusive="1" maxInclusive="100"/></unsignedInt>
          <default type="object" value="10"/>
        </syntax>
      </parameter>
      <parameter name="Offset" access="readWrite">
        <syntax><int><range minInclusive="-12" maxInclusive="12"/></int></syntax>
      </parameter>
      <parameter name="Since" access="readWrite">
        <syntax><dateTime/><default type="object" value="2000-01-01T00:00:00"/></syntax>
      </parameter>
      <parameter name="Key" access="readWrite">
        <syntax><base64><size maxLength="4"/></base64></syntax>
      </parameter>
      <parameter name="Serial" access="readOnly">
        <syntax><string/><default type="object" value="0001"/></syntax>
      </parameter>
      <parameter name="UpTime" access="readOnly"><syntax><unsignedInt/></syntax></parameter>
      <parameter name="Loose" access="readWrite"><syntax><unsignedInt/></syntax></parameter>
    </object>
    <object name="InternetGatewayDevice.Host.{i}." access="readWrite" minEntries="0"
            maxEntries="unbounded">
      <parameter name="Name" access="readWrite">
        <syntax><string/><default type="object" value="host"/></syntax>
      </parameter>
    </object>
    <object name="InternetGatewayDevice.Host.{i}.Port.{i}." access="readWrite" minEntries="0"
            maxEntries="unbounded">
      <parameter name="Number" access="readWrite"><syntax><unsignedInt/></syntax></parameter>
    </object>
  </model>
</dm:document>
)";

inline constexpr char kBoxOverlay[] = R"([model]
name = "box"
[components]
clock = 3
lan = 4
[[rule]]
match = "InternetGatewayDevice.Time.*"
save = "modified"
component = "clock"
[[rule]]
match = ["InternetGatewayDevice.Time.Enable", "InternetGatewayDevice.Time.Serial"]
save = "always"
[[rule]]
match = ["InternetGatewayDevice.Time.UpTime", "InternetGatewayDevice.Time.Loose"]
save = "never"
[[rule]]
match = "InternetGatewayDevice.Time.UpTime"
dynamic = true
[[rule]]
match = "InternetGatewayDevice.Host.**"
save = "modified"
component = "lan"
)";

}  // namespace mibctl
