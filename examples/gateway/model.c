/* The data model: an outline, one row a record, and the schema block made from it.
 *
 * The outline is written the way the tree looks: a row's depth is its level, and a row
 * belongs to the nearest row above it that is one level up. Links and unique ids follow from
 * that, so adding a parameter is adding a line.
 *
 * SPDX-License-Identifier: BSD-2-Clause
 */
#include <string.h>

#include "gateway.h"

/* What a row says about keeping and reporting a value. */
#define LIVE (QMIBTREE_UID_DYNAMIC | QMIBTREE_UID_READONLY) /* read hooks ask the system */
#define FIXED QMIBTREE_UID_READONLY                         /* only the gateway itself writes it */
#define KEEP QMIBTREE_UID_SAVE                              /* always in the saved document */
#define MODIFIED QMIBTREE_UID_SAVE_MODIFIED                 /* there while it is not the default */
#define NOTIFY QMIBTREE_UID_NOTIF_DEFAULT                   /* changes are reported, at first */
#define REPORT QMIBTREE_UID_NOTIF_FORCED                    /* changes are always reported */

#define ANY 0 /* a text of any length */

/* The words that some parameters choose from, where they do not fit their row. */
#define CIPHERS                                                      \
  "WEPEncryption|TKIPEncryption|WEPandTKIPEncryption|AESEncryption|" \
  "WEPandAESEncryption|TKIPandAESEncryption|WEPandTKIPandAESEncryption"
#define BASIC_LOGINS "None|EAPAuthentication|SharedAuthentication"
#define WPA_LOGINS "PSKAuthentication|EAPAuthentication"
#define IEEE11I_LOGINS "PSKAuthentication|EAPAuthentication|EAPandPSKAuthentication"
#define LOGIN_SERVICES "None|LinkAuthentication|RadiusClient"
#define WIRELESS_ROLES "InfrastructureAccessPoint|WirelessBridge|WirelessRepeater|WirelessStation"
#define PPP_LINKS \
  "Unconfigured|IP_Routed|DHCP_Spoofed|PPPoE_Bridged|PPPoE_Relay|PPTP_Relay|L2TP_Relay"

struct row {
  uint32_t depth;
  const char* name;
  uint32_t type;
  uint32_t flags;
  int64_t min; /* int, unsignedInt: bounds; string, base64: max is the longest length */
  int64_t max;
  const char* words; /* the only texts allowed, with "|" between them; null: any */
  const char* defval;
  uint32_t comp;
};

/* clang-format off */
#define ROW(depth, name, type, flags, min, max, words, defval, comp) \
  {depth, name, QMIBTREE_TYPE_##type, flags, min, max, words, defval, COMP_##comp}

#define OBJECT(depth, name) ROW(depth, name, OBJECT, 0, 0, 0, NULL, NULL, NONE)
#define TABLE(depth, name, comp) \
  ROW(depth, name, OBJECT, QMIBTREE_UID_MULTI, 0, 0, NULL, NULL, comp)
#define BOOL(depth, name, flags, defval, comp) \
  ROW(depth, name, BOOL, flags, 0, 0, NULL, defval, comp)
#define INT(depth, name, flags, min, max, defval, comp) \
  ROW(depth, name, INT, flags, min, max, NULL, defval, comp)
#define UINT(depth, name, flags, min, max, defval, comp) \
  ROW(depth, name, UINT, flags, min, max, NULL, defval, comp)
#define DATETIME(depth, name, flags, defval, comp) \
  ROW(depth, name, DATETIME, flags, 0, 0, NULL, defval, comp)
#define STRING(depth, name, flags, longest, defval, comp) \
  ROW(depth, name, STRING, flags, 0, longest, NULL, defval, comp)
#define WORDS(depth, name, flags, words, defval, comp) \
  ROW(depth, name, STRING, flags, 0, ANY, words, defval, comp)
#define BASE64(depth, name, flags, longest, comp) \
  ROW(depth, name, BASE64, flags, 0, longest, NULL, NULL, comp)

/* Three rules for rows that are kept: every string has a default, if only the empty text; a
 * string that may be emptied has just that (an empty element in a document leaves the default);
 * and no datetime is kept, for documents cannot set one. */
static const struct row outline[] = {
  OBJECT(0, "InternetGatewayDevice."),
    STRING(1, "DeviceSummary", FIXED | REPORT, 1024, "InternetGatewayDevice:1.14[](Baseline:1)",
           SYSTEM),
    UINT(1, "LANDeviceNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, SYSTEM),
    UINT(1, "WANDeviceNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, SYSTEM),

    OBJECT(1, "DeviceInfo."),
      STRING(2, "Manufacturer", FIXED, 64, "Example Networks", SYSTEM),
      STRING(2, "ManufacturerOUI", FIXED, 6, "00005E", SYSTEM),
      STRING(2, "ModelName", FIXED, 64, "Gateway", SYSTEM),
      STRING(2, "ModelNumber", FIXED, 64, "G-1", SYSTEM),
      STRING(2, "Description", FIXED, 256, "Home gateway", SYSTEM),
      STRING(2, "ProductClass", FIXED, 64, "HomeGateway", SYSTEM),
      STRING(2, "SerialNumber", FIXED, 64, "00005E0053A1", SYSTEM),
      STRING(2, "HardwareVersion", FIXED | REPORT, 64, "2", SYSTEM),
      STRING(2, "SoftwareVersion", FIXED | REPORT, 64, "1.0.0", SYSTEM),
      STRING(2, "ModemFirmwareVersion", FIXED, 64, "", SYSTEM),
      STRING(2, "AdditionalHardwareVersion", FIXED, 64, "", SYSTEM),
      STRING(2, "AdditionalSoftwareVersion", FIXED, 64, "", SYSTEM),
      STRING(2, "SpecVersion", FIXED | REPORT, 16, "1.0", SYSTEM),
      STRING(2, "ProvisioningCode", KEEP | REPORT, 64, "", SYSTEM),
      UINT(2, "UpTime", LIVE, 0, UINT32_MAX, NULL, SYSTEM),
      DATETIME(2, "FirstUseDate", FIXED, "2000-01-01T00:00:00", SYSTEM),
      STRING(2, "DeviceLog", FIXED, 32768, "", SYSTEM),
      UINT(2, "VendorConfigFileNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, SYSTEM),
      TABLE(2, "VendorConfigFile.", SYSTEM),
        STRING(3, "Alias", MODIFIED, 64, "", SYSTEM),
        STRING(3, "Name", FIXED | MODIFIED, 64, "", SYSTEM),
        STRING(3, "Version", FIXED | MODIFIED, 16, "", SYSTEM),
        STRING(3, "Description", FIXED | MODIFIED, 256, "", SYSTEM),

    OBJECT(1, "DeviceConfig."),
      STRING(2, "PersistentData", MODIFIED, 256, "", SYSTEM),

    OBJECT(1, "ManagementServer."),
      BOOL(2, "EnableCWMP", KEEP, "true", MANAGEMENT),
      STRING(2, "URL", KEEP, 256, "", MANAGEMENT),
      STRING(2, "Username", KEEP, 256, "", MANAGEMENT),
      STRING(2, "Password", KEEP, 256, "", MANAGEMENT),
      BOOL(2, "PeriodicInformEnable", KEEP, "false", MANAGEMENT),
      UINT(2, "PeriodicInformInterval", KEEP, 1, UINT32_MAX, "86400", MANAGEMENT),
      DATETIME(2, "PeriodicInformTime", 0, "2000-01-01T00:00:00", MANAGEMENT),
      STRING(2, "ParameterKey", FIXED | KEEP | REPORT, 32, "", MANAGEMENT),
      STRING(2, "ConnectionRequestURL", FIXED | REPORT, 256, "", MANAGEMENT),
      STRING(2, "ConnectionRequestUsername", KEEP, 256, "", MANAGEMENT),
      STRING(2, "ConnectionRequestPassword", KEEP, 256, "", MANAGEMENT),
      BOOL(2, "UpgradesManaged", MODIFIED, "false", MANAGEMENT),
      STRING(2, "KickURL", FIXED, 256, "", MANAGEMENT),
      STRING(2, "DownloadProgressURL", FIXED, 256, "", MANAGEMENT),
      UINT(2, "DefaultActiveNotificationThrottle", MODIFIED, 0, UINT32_MAX, "0", MANAGEMENT),
      STRING(2, "UDPConnectionRequestAddress", FIXED, 256, "", MANAGEMENT),
      UINT(2, "UDPConnectionRequestAddressNotificationLimit", MODIFIED, 0, UINT32_MAX, "0",
           MANAGEMENT),
      BOOL(2, "STUNEnable", MODIFIED, "false", MANAGEMENT),
      STRING(2, "STUNServerAddress", MODIFIED, 256, "", MANAGEMENT),
      UINT(2, "STUNServerPort", MODIFIED, 0, 65535, "3478", MANAGEMENT),
      STRING(2, "STUNUsername", MODIFIED, 256, "", MANAGEMENT),
      STRING(2, "STUNPassword", MODIFIED, 256, "", MANAGEMENT),
      INT(2, "STUNMaximumKeepAlivePeriod", MODIFIED, -1, INT32_MAX, "-1", MANAGEMENT),
      UINT(2, "STUNMinimumKeepAlivePeriod", MODIFIED, 0, UINT32_MAX, "0", MANAGEMENT),
      BOOL(2, "NATDetected", FIXED, "false", MANAGEMENT),
      BOOL(2, "AliasBasedAddressing", FIXED | REPORT, "false", MANAGEMENT),
      UINT(2, "CWMPRetryMinimumWaitInterval", MODIFIED, 1, 65535, "5", MANAGEMENT),
      UINT(2, "CWMPRetryIntervalMultiplier", MODIFIED, 1000, 65535, "2000", MANAGEMENT),

    OBJECT(1, "Time."),
      BOOL(2, "Enable", KEEP, "false", SYSTEM),
      STRING(2, "NTPServer1", KEEP, 64, "", SYSTEM),
      STRING(2, "NTPServer2", MODIFIED, 64, "", SYSTEM),
      STRING(2, "NTPServer3", MODIFIED, 64, "", SYSTEM),
      STRING(2, "NTPServer4", MODIFIED, 64, "", SYSTEM),
      STRING(2, "NTPServer5", MODIFIED, 64, "", SYSTEM),
      DATETIME(2, "CurrentLocalTime", LIVE, NULL, SYSTEM),
      STRING(2, "LocalTimeZone", KEEP, 6, "", SYSTEM),
      STRING(2, "LocalTimeZoneName", MODIFIED, 64, "", SYSTEM),
      BOOL(2, "DaylightSavingsUsed", MODIFIED, "false", SYSTEM),
      STRING(2, "Status", FIXED, ANY, "Disabled", SYSTEM),

    OBJECT(1, "UserInterface."),
      BOOL(2, "UserDatabaseSupported", FIXED, "false", MANAGEMENT),
      BOOL(2, "PasswordRequired", KEEP, "true", MANAGEMENT),
      BOOL(2, "PasswordUserSelectable", MODIFIED, "true", MANAGEMENT),
      BOOL(2, "UpgradeAvailable", MODIFIED, "false", MANAGEMENT),
      STRING(2, "ISPName", MODIFIED, 64, "", MANAGEMENT),
      STRING(2, "ISPHelpDesk", MODIFIED, 32, "", MANAGEMENT),
      STRING(2, "ISPHomePage", MODIFIED, 256, "", MANAGEMENT),
      STRING(2, "ISPHelpPage", MODIFIED, 256, "", MANAGEMENT),
      BASE64(2, "ISPLogo", MODIFIED, 4095, MANAGEMENT),
      UINT(2, "ISPLogoSize", MODIFIED, 0, 4095, "0", MANAGEMENT),
      STRING(2, "ISPMailServer", MODIFIED, 256, "", MANAGEMENT),
      STRING(2, "ISPNewsServer", MODIFIED, 256, "", MANAGEMENT),
      STRING(2, "TextColor", MODIFIED, 6, "", MANAGEMENT),
      STRING(2, "BackgroundColor", MODIFIED, 6, "", MANAGEMENT),
      STRING(2, "ButtonColor", MODIFIED, 6, "", MANAGEMENT),
      STRING(2, "ButtonTextColor", MODIFIED, 6, "", MANAGEMENT),
      STRING(2, "AutoUpdateServer", MODIFIED, 256, "", MANAGEMENT),
      STRING(2, "UserUpdateServer", MODIFIED, 256, "", MANAGEMENT),
      STRING(2, "AvailableLanguages", FIXED, 256, "de,en,fr", MANAGEMENT),
      BOOL(2, "SharedPassword", MODIFIED, "true", MANAGEMENT),
      STRING(2, "CurrentLanguage", MODIFIED, 16, "", MANAGEMENT),

    OBJECT(1, "LANConfigSecurity."),
      STRING(2, "ConfigPassword", KEEP, 64, "", MANAGEMENT),

    OBJECT(1, "Firewall."),
      WORDS(2, "Config", KEEP, "High|Low|Off", "High", FIREWALL),
      STRING(2, "Version", FIXED, 16, "1", FIREWALL),

    OBJECT(1, "Layer3Forwarding."),
      STRING(2, "DefaultConnectionService", KEEP, 256, "", WAN),
      UINT(2, "ForwardNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, WAN),
      TABLE(2, "Forwarding.", WAN),
        BOOL(3, "Enable", KEEP, "false", WAN),
        STRING(3, "Status", FIXED, ANY, "Disabled", WAN),
        STRING(3, "Alias", MODIFIED, 64, "", WAN),
        BOOL(3, "StaticRoute", FIXED, "true", WAN),
        STRING(3, "DestIPAddress", KEEP, 45, "", WAN),
        STRING(3, "DestSubnetMask", KEEP, 45, "", WAN),
        STRING(3, "SourceIPAddress", MODIFIED, 45, "", WAN),
        STRING(3, "SourceSubnetMask", MODIFIED, 45, "", WAN),
        STRING(3, "GatewayIPAddress", KEEP, 45, "", WAN),
        STRING(3, "Interface", MODIFIED, 256, "", WAN),
        INT(3, "ForwardingMetric", MODIFIED, -1, INT32_MAX, "-1", WAN),
        UINT(3, "MTU", MODIFIED, 1, 1540, "1500", WAN),
        INT(3, "ForwardingPolicy", MODIFIED, -1, INT32_MAX, "-1", WAN),

    TABLE(1, "LANDevice.", LAN),
      STRING(2, "Alias", MODIFIED, 64, "", LAN),
      UINT(2, "LANEthernetInterfaceNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, LAN),
      UINT(2, "LANUSBInterfaceNumberOfEntries", FIXED, 0, UINT32_MAX, "0", LAN),
      UINT(2, "LANWLANConfigurationNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, LAN),
      OBJECT(2, "LANHostConfigManagement."),
        STRING(3, "MACAddress", LIVE, 17, NULL, LAN),
        BOOL(3, "DHCPServerConfigurable", MODIFIED, "true", LAN),
        BOOL(3, "DHCPServerEnable", KEEP, "false", LAN),
        BOOL(3, "DHCPRelay", FIXED, "false", LAN),
        STRING(3, "MinAddress", KEEP, 45, "", LAN),
        STRING(3, "MaxAddress", KEEP, 45, "", LAN),
        STRING(3, "ReservedAddresses", MODIFIED, 256, "", LAN),
        STRING(3, "SubnetMask", KEEP, 45, "", LAN),
        STRING(3, "DNSServers", KEEP, 64, "", LAN),
        STRING(3, "DomainName", KEEP, 64, "", LAN),
        STRING(3, "IPRouters", KEEP, 64, "", LAN),
        INT(3, "DHCPLeaseTime", KEEP, -1, INT32_MAX, "86400", LAN),
        WORDS(3, "UseAllocatedWAN", MODIFIED, "Normal|UseAllocatedSubnet|Passthrough", "Normal",
              LAN),
        STRING(3, "AssociatedConnection", MODIFIED, 256, "", LAN),
        UINT(3, "PassthroughLease", MODIFIED, 0, UINT32_MAX, "600", LAN),
        STRING(3, "PassthroughMACAddress", MODIFIED, 17, "", LAN),
        STRING(3, "AllowedMACAddresses", MODIFIED, 512, "", LAN),
        UINT(3, "IPInterfaceNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, LAN),
        UINT(3, "DHCPStaticAddressNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, LAN),
        TABLE(3, "IPInterface.", LAN),
          BOOL(4, "Enable", KEEP, "false", LAN),
          STRING(4, "Alias", MODIFIED, 64, "", LAN),
          STRING(4, "IPInterfaceIPAddress", KEEP, 45, "", LAN),
          STRING(4, "IPInterfaceSubnetMask", KEEP, 45, "", LAN),
          WORDS(4, "IPInterfaceAddressingType", MODIFIED, "DHCP|Static|AutoIP", "DHCP", LAN),
        TABLE(3, "DHCPStaticAddress.", LAN),
          BOOL(4, "Enable", KEEP, "false", LAN),
          STRING(4, "Alias", MODIFIED, 64, "", LAN),
          STRING(4, "Chaddr", KEEP, 17, "", LAN),
          STRING(4, "Yiaddr", KEEP, 45, "", LAN),
      TABLE(2, "LANEthernetInterfaceConfig.", LAN),
        BOOL(3, "Enable", KEEP, "false", LAN),
        STRING(3, "Status", LIVE, ANY, NULL, LAN),
        STRING(3, "Alias", MODIFIED, 64, "", LAN),
        STRING(3, "Name", FIXED | KEEP, 16, "", LAN),
        STRING(3, "MACAddress", LIVE, 17, NULL, LAN),
        BOOL(3, "MACAddressControlEnabled", MODIFIED, "false", LAN),
        WORDS(3, "MaxBitRate", MODIFIED, "10|100|1000|10000|Auto", "Auto", LAN),
        WORDS(3, "DuplexMode", MODIFIED, "Half|Full|Auto", "Auto", LAN),
        OBJECT(3, "Stats."),
          UINT(4, "BytesSent", LIVE, 0, UINT32_MAX, NULL, LAN),
          UINT(4, "BytesReceived", LIVE, 0, UINT32_MAX, NULL, LAN),
          UINT(4, "PacketsSent", LIVE, 0, UINT32_MAX, NULL, LAN),
          UINT(4, "PacketsReceived", LIVE, 0, UINT32_MAX, NULL, LAN),
          UINT(4, "ErrorsSent", LIVE, 0, UINT32_MAX, NULL, LAN),
          UINT(4, "ErrorsReceived", LIVE, 0, UINT32_MAX, NULL, LAN),
          UINT(4, "DiscardPacketsSent", LIVE, 0, UINT32_MAX, NULL, LAN),
          UINT(4, "DiscardPacketsReceived", LIVE, 0, UINT32_MAX, NULL, LAN),
          UINT(4, "MulticastPacketsReceived", LIVE, 0, UINT32_MAX, NULL, LAN),
      OBJECT(2, "Hosts."),
        UINT(3, "HostNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, LAN),
        TABLE(3, "Host.", LAN),
          STRING(4, "IPAddress", FIXED | MODIFIED, 45, "", LAN),
          STRING(4, "AddressSource", FIXED | MODIFIED, ANY, "DHCP", LAN),
          INT(4, "LeaseTimeRemaining", FIXED, -1, INT32_MAX, "0", LAN),
          STRING(4, "MACAddress", FIXED | MODIFIED, 17, "", LAN),
          STRING(4, "Layer2Interface", FIXED | MODIFIED, 256, "", LAN),
          STRING(4, "HostName", FIXED | MODIFIED, 64, "", LAN),
          STRING(4, "InterfaceType", FIXED | MODIFIED, ANY, "Ethernet", LAN),
          BOOL(4, "Active", FIXED, "false", LAN),
          STRING(4, "VendorClassID", FIXED | MODIFIED, 256, "", LAN),
          STRING(4, "ClientID", FIXED | MODIFIED, 256, "", LAN),
          STRING(4, "UserClassID", FIXED | MODIFIED, 256, "", LAN),
      TABLE(2, "WLANConfiguration.", WLAN),
        BOOL(3, "Enable", KEEP, "false", WLAN),
        STRING(3, "Status", FIXED, ANY, "Disabled", WLAN),
        STRING(3, "Alias", MODIFIED, 64, "", WLAN),
        STRING(3, "Name", FIXED | KEEP, 16, "", WLAN),
        STRING(3, "BSSID", LIVE, 17, NULL, WLAN),
        STRING(3, "MaxBitRate", MODIFIED, 4, "Auto", WLAN),
        UINT(3, "Channel", KEEP, 0, 255, "0", WLAN),
        BOOL(3, "AutoChannelEnable", KEEP, "true", WLAN),
        STRING(3, "SSID", KEEP, 32, "", WLAN),
        WORDS(3, "BeaconType", KEEP, "None|Basic|WPA|11i|WPAand11i", "None", WLAN),
        BOOL(3, "MACAddressControlEnabled", MODIFIED, "false", WLAN),
        STRING(3, "Standard", FIXED | MODIFIED, ANY, "n", WLAN),
        UINT(3, "WEPKeyIndex", MODIFIED, 1, 4, "1", WLAN),
        STRING(3, "KeyPassphrase", KEEP, 63, "", WLAN),
        STRING(3, "WEPEncryptionLevel", FIXED, 64, "Disabled,40-bit,104-bit", WLAN),
        WORDS(3, "BasicEncryptionModes", MODIFIED, "None|WEPEncryption", "None", WLAN),
        WORDS(3, "BasicAuthenticationMode", MODIFIED, BASIC_LOGINS, "None", WLAN),
        WORDS(3, "WPAEncryptionModes", MODIFIED, CIPHERS, "TKIPEncryption", WLAN),
        WORDS(3, "WPAAuthenticationMode", MODIFIED, WPA_LOGINS, "PSKAuthentication", WLAN),
        WORDS(3, "IEEE11iEncryptionModes", MODIFIED, CIPHERS, "AESEncryption", WLAN),
        WORDS(3, "IEEE11iAuthenticationMode", MODIFIED, IEEE11I_LOGINS, "PSKAuthentication", WLAN),
        STRING(3, "PossibleChannels", FIXED, 1024, "1-13", WLAN),
        STRING(3, "BasicDataTransmitRates", MODIFIED, 256, "", WLAN),
        STRING(3, "OperationalDataTransmitRates", MODIFIED, 256, "", WLAN),
        STRING(3, "PossibleDataTransmitRates", FIXED, 256, "1,2,5.5,11,6,9,12,18,24,36,48,54",
               WLAN),
        BOOL(3, "InsecureOOBAccessEnabled", MODIFIED, "false", WLAN),
        BOOL(3, "BeaconAdvertisementEnabled", MODIFIED, "true", WLAN),
        BOOL(3, "SSIDAdvertisementEnabled", KEEP, "true", WLAN),
        BOOL(3, "RadioEnabled", KEEP, "true", WLAN),
        STRING(3, "TransmitPowerSupported", FIXED, 64, "25,50,75,100", WLAN),
        UINT(3, "TransmitPower", MODIFIED, 0, 100, "100", WLAN),
        BOOL(3, "AutoRateFallBackEnabled", MODIFIED, "true", WLAN),
        STRING(3, "LocationDescription", MODIFIED, 4096, "", WLAN),
        STRING(3, "RegulatoryDomain", KEEP, 3, "", WLAN),
        UINT(3, "TotalPSKFailures", FIXED, 0, UINT32_MAX, "0", WLAN),
        UINT(3, "TotalIntegrityFailures", FIXED, 0, UINT32_MAX, "0", WLAN),
        STRING(3, "ChannelsInUse", FIXED, 1024, "", WLAN),
        WORDS(3, "DeviceOperationMode", MODIFIED, WIRELESS_ROLES, "InfrastructureAccessPoint",
              WLAN),
        UINT(3, "DistanceFromRoot", MODIFIED, 0, UINT32_MAX, "0", WLAN),
        STRING(3, "PeerBSSID", MODIFIED, 17, "", WLAN),
        WORDS(3, "AuthenticationServiceMode", MODIFIED, LOGIN_SERVICES, "None", WLAN),
        BOOL(3, "WMMSupported", FIXED, "true", WLAN),
        BOOL(3, "UAPSDSupported", FIXED, "true", WLAN),
        BOOL(3, "WMMEnable", MODIFIED, "true", WLAN),
        BOOL(3, "UAPSDEnable", MODIFIED, "false", WLAN),
        UINT(3, "TotalBytesSent", LIVE, 0, UINT32_MAX, NULL, WLAN),
        UINT(3, "TotalBytesReceived", LIVE, 0, UINT32_MAX, NULL, WLAN),
        UINT(3, "TotalPacketsSent", LIVE, 0, UINT32_MAX, NULL, WLAN),
        UINT(3, "TotalPacketsReceived", LIVE, 0, UINT32_MAX, NULL, WLAN),
        UINT(3, "TotalAssociations", LIVE, 0, UINT32_MAX, NULL, WLAN),
        OBJECT(3, "Stats."),
          UINT(4, "ErrorsSent", LIVE, 0, UINT32_MAX, NULL, WLAN),
          UINT(4, "ErrorsReceived", LIVE, 0, UINT32_MAX, NULL, WLAN),
          UINT(4, "DiscardPacketsSent", LIVE, 0, UINT32_MAX, NULL, WLAN),
          UINT(4, "DiscardPacketsReceived", LIVE, 0, UINT32_MAX, NULL, WLAN),
          UINT(4, "MulticastPacketsReceived", LIVE, 0, UINT32_MAX, NULL, WLAN),
        TABLE(3, "AssociatedDevice.", WLAN),
          STRING(4, "AssociatedDeviceMACAddress", FIXED, 17, "", WLAN),
          STRING(4, "AssociatedDeviceIPAddress", FIXED, 64, "", WLAN),
          BOOL(4, "AssociatedDeviceAuthenticationState", FIXED, "false", WLAN),
          STRING(4, "LastDataTransmitRate", FIXED, 4, "", WLAN),
        TABLE(3, "WEPKey.", WLAN),
          STRING(4, "Alias", MODIFIED, 64, "", WLAN),
          STRING(4, "WEPKey", MODIFIED, 128, "", WLAN),
        TABLE(3, "PreSharedKey.", WLAN),
          STRING(4, "Alias", MODIFIED, 64, "", WLAN),
          STRING(4, "PreSharedKey", MODIFIED, 64, "", WLAN),
          STRING(4, "KeyPassphrase", MODIFIED, 63, "", WLAN),
          STRING(4, "AssociatedDeviceMACAddress", MODIFIED, 17, "", WLAN),

    TABLE(1, "WANDevice.", WAN),
      STRING(2, "Alias", MODIFIED, 64, "", WAN),
      UINT(2, "WANConnectionNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, WAN),
      OBJECT(2, "WANCommonInterfaceConfig."),
        BOOL(3, "EnabledForInternet", KEEP, "true", WAN),
        STRING(3, "WANAccessType", FIXED, ANY, "Ethernet", WAN),
        UINT(3, "Layer1UpstreamMaxBitRate", FIXED, 0, UINT32_MAX, "1000000000", WAN),
        UINT(3, "Layer1DownstreamMaxBitRate", FIXED, 0, UINT32_MAX, "1000000000", WAN),
        STRING(3, "PhysicalLinkStatus", FIXED | NOTIFY, ANY, "Down", WAN),
        STRING(3, "WANAccessProvider", FIXED, 256, "", WAN),
        UINT(3, "TotalBytesSent", LIVE, 0, UINT32_MAX, NULL, WAN),
        UINT(3, "TotalBytesReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
        UINT(3, "TotalPacketsSent", LIVE, 0, UINT32_MAX, NULL, WAN),
        UINT(3, "TotalPacketsReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
        UINT(3, "MaximumActiveConnections", FIXED, 0, UINT32_MAX, "2", WAN),
        UINT(3, "NumberOfActiveConnections", FIXED, 0, UINT32_MAX, "0", WAN),
      OBJECT(2, "WANEthernetInterfaceConfig."),
        BOOL(3, "Enable", KEEP, "true", WAN),
        STRING(3, "Status", LIVE, ANY, NULL, WAN),
        STRING(3, "MACAddress", LIVE, 17, NULL, WAN),
        WORDS(3, "MaxBitRate", MODIFIED, "10|100|1000|10000", "1000", WAN),
        WORDS(3, "DuplexMode", MODIFIED, "Half|Full|Auto", "Auto", WAN),
        INT(3, "ShapingRate", MODIFIED, -1, INT32_MAX, "-1", WAN),
        UINT(3, "ShapingBurstSize", MODIFIED, 0, UINT32_MAX, "0", WAN),
        OBJECT(3, "Stats."),
          UINT(4, "BytesSent", LIVE, 0, UINT32_MAX, NULL, WAN),
          UINT(4, "BytesReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
          UINT(4, "PacketsSent", LIVE, 0, UINT32_MAX, NULL, WAN),
          UINT(4, "PacketsReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
      TABLE(2, "WANConnectionDevice.", WAN),
        STRING(3, "Alias", MODIFIED, 64, "", WAN),
        UINT(3, "WANIPConnectionNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, WAN),
        UINT(3, "WANPPPConnectionNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, WAN),
        TABLE(3, "WANIPConnection.", WAN),
          BOOL(4, "Enable", KEEP, "false", WAN),
          STRING(4, "Alias", MODIFIED, 64, "", WAN),
          BOOL(4, "Reset", 0, "false", WAN),
          STRING(4, "ConnectionStatus", FIXED, ANY, "Unconfigured", WAN),
          STRING(4, "PossibleConnectionTypes", FIXED, ANY, "Unconfigured,IP_Routed,IP_Bridged",
                 WAN),
          WORDS(4, "ConnectionType", KEEP, "Unconfigured|IP_Routed|IP_Bridged", "Unconfigured",
                WAN),
          STRING(4, "Name", KEEP, 256, "", WAN),
          UINT(4, "Uptime", FIXED, 0, UINT32_MAX, "0", WAN),
          STRING(4, "LastConnectionError", FIXED, ANY, "ERROR_NONE", WAN),
          UINT(4, "AutoDisconnectTime", MODIFIED, 0, UINT32_MAX, "0", WAN),
          UINT(4, "IdleDisconnectTime", MODIFIED, 0, UINT32_MAX, "0", WAN),
          UINT(4, "WarnDisconnectDelay", MODIFIED, 0, UINT32_MAX, "0", WAN),
          BOOL(4, "RSIPAvailable", FIXED, "false", WAN),
          BOOL(4, "NATEnabled", KEEP, "true", WAN),
          WORDS(4, "AddressingType", KEEP, "DHCP|Static", "DHCP", WAN),
          STRING(4, "ExternalIPAddress", MODIFIED | REPORT, 45, "", WAN),
          STRING(4, "SubnetMask", MODIFIED, 45, "", WAN),
          STRING(4, "DefaultGateway", MODIFIED, 16, "", WAN),
          BOOL(4, "DNSEnabled", MODIFIED, "true", WAN),
          BOOL(4, "DNSOverrideAllowed", MODIFIED, "false", WAN),
          STRING(4, "DNSServers", MODIFIED, 64, "", WAN),
          UINT(4, "MaxMTUSize", MODIFIED, 1, 1540, "1500", WAN),
          STRING(4, "MACAddress", MODIFIED, 17, "", WAN),
          BOOL(4, "MACAddressOverride", MODIFIED, "false", WAN),
          WORDS(4, "ConnectionTrigger", MODIFIED, "OnDemand|AlwaysOn|Manual", "OnDemand", WAN),
          WORDS(4, "RouteProtocolRx", MODIFIED, "Off|RIPv1|RIPv2|OSPF", "Off", WAN),
          UINT(4, "PortMappingNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, WAN),
          INT(4, "ShapingRate", MODIFIED, -1, INT32_MAX, "-1", WAN),
          UINT(4, "ShapingBurstSize", MODIFIED, 0, UINT32_MAX, "0", WAN),
          TABLE(4, "PortMapping.", FIREWALL),
            BOOL(5, "PortMappingEnabled", KEEP, "false", FIREWALL),
            STRING(5, "Alias", MODIFIED, 64, "", FIREWALL),
            UINT(5, "PortMappingLeaseDuration", MODIFIED, 0, UINT32_MAX, "0", FIREWALL),
            STRING(5, "RemoteHost", MODIFIED, 16, "", FIREWALL),
            UINT(5, "ExternalPort", KEEP, 0, UINT32_MAX, "0", FIREWALL),
            UINT(5, "ExternalPortEndRange", MODIFIED, 0, UINT32_MAX, "0", FIREWALL),
            UINT(5, "InternalPort", KEEP, 0, UINT32_MAX, "0", FIREWALL),
            WORDS(5, "PortMappingProtocol", KEEP, "TCP|UDP", "TCP", FIREWALL),
            STRING(5, "InternalClient", KEEP, 256, "", FIREWALL),
            STRING(5, "PortMappingDescription", MODIFIED, 256, "", FIREWALL),
          OBJECT(4, "Stats."),
            UINT(5, "EthernetBytesSent", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetBytesReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetPacketsSent", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetPacketsReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetErrorsSent", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetErrorsReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetDiscardPacketsSent", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetDiscardPacketsReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetMulticastPacketsReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
        TABLE(3, "WANPPPConnection.", WAN),
          BOOL(4, "Enable", KEEP, "false", WAN),
          STRING(4, "Alias", MODIFIED, 64, "", WAN),
          BOOL(4, "Reset", 0, "false", WAN),
          STRING(4, "ConnectionStatus", FIXED, ANY, "Unconfigured", WAN),
          STRING(4, "PossibleConnectionTypes", FIXED, ANY, "Unconfigured,IP_Routed,PPPoE_Bridged",
                 WAN),
          WORDS(4, "ConnectionType", KEEP, PPP_LINKS, "Unconfigured", WAN),
          UINT(4, "PPPoESessionID", FIXED, 1, UINT32_MAX, "1", WAN),
          STRING(4, "Name", KEEP, 256, "", WAN),
          UINT(4, "Uptime", FIXED, 0, UINT32_MAX, "0", WAN),
          STRING(4, "LastConnectionError", FIXED, ANY, "ERROR_NONE", WAN),
          UINT(4, "AutoDisconnectTime", MODIFIED, 0, UINT32_MAX, "0", WAN),
          UINT(4, "IdleDisconnectTime", MODIFIED, 0, UINT32_MAX, "0", WAN),
          UINT(4, "WarnDisconnectDelay", MODIFIED, 0, UINT32_MAX, "0", WAN),
          BOOL(4, "RSIPAvailable", FIXED, "false", WAN),
          BOOL(4, "NATEnabled", KEEP, "true", WAN),
          STRING(4, "Username", KEEP, 64, "", WAN),
          STRING(4, "Password", KEEP, 64, "", WAN),
          STRING(4, "PPPEncryptionProtocol", FIXED, ANY, "None", WAN),
          STRING(4, "PPPCompressionProtocol", FIXED, ANY, "None", WAN),
          STRING(4, "PPPAuthenticationProtocol", FIXED, ANY, "CHAP", WAN),
          STRING(4, "ExternalIPAddress", MODIFIED | REPORT, 45, "", WAN),
          STRING(4, "RemoteIPAddress", FIXED, 45, "", WAN),
          UINT(4, "MaxMRUSize", MODIFIED, 1, 1540, "1492", WAN),
          UINT(4, "CurrentMRUSize", FIXED, 1, 1540, "1492", WAN),
          BOOL(4, "DNSEnabled", MODIFIED, "true", WAN),
          BOOL(4, "DNSOverrideAllowed", MODIFIED, "false", WAN),
          STRING(4, "DNSServers", MODIFIED, 64, "", WAN),
          STRING(4, "MACAddress", MODIFIED, 17, "", WAN),
          BOOL(4, "MACAddressOverride", MODIFIED, "false", WAN),
          STRING(4, "TransportType", FIXED, ANY, "PPPoE", WAN),
          STRING(4, "PPPoEACName", MODIFIED, 256, "", WAN),
          STRING(4, "PPPoEServiceName", MODIFIED, 256, "", WAN),
          WORDS(4, "ConnectionTrigger", MODIFIED, "OnDemand|AlwaysOn|Manual", "OnDemand", WAN),
          WORDS(4, "RouteProtocolRx", MODIFIED, "Off|RIPv1|RIPv2|OSPF", "Off", WAN),
          UINT(4, "PPPLCPEcho", FIXED, 0, UINT32_MAX, "30", WAN),
          UINT(4, "PPPLCPEchoRetry", FIXED, 0, UINT32_MAX, "3", WAN),
          UINT(4, "PortMappingNumberOfEntries", LIVE, 0, UINT32_MAX, NULL, WAN),
          INT(4, "ShapingRate", MODIFIED, -1, INT32_MAX, "-1", WAN),
          UINT(4, "ShapingBurstSize", MODIFIED, 0, UINT32_MAX, "0", WAN),
          STRING(4, "DefaultGateway", FIXED, 16, "", WAN),
          TABLE(4, "PortMapping.", FIREWALL),
            BOOL(5, "PortMappingEnabled", KEEP, "false", FIREWALL),
            STRING(5, "Alias", MODIFIED, 64, "", FIREWALL),
            UINT(5, "PortMappingLeaseDuration", MODIFIED, 0, UINT32_MAX, "0", FIREWALL),
            STRING(5, "RemoteHost", MODIFIED, 16, "", FIREWALL),
            UINT(5, "ExternalPort", KEEP, 0, UINT32_MAX, "0", FIREWALL),
            UINT(5, "ExternalPortEndRange", MODIFIED, 0, UINT32_MAX, "0", FIREWALL),
            UINT(5, "InternalPort", KEEP, 0, UINT32_MAX, "0", FIREWALL),
            WORDS(5, "PortMappingProtocol", KEEP, "TCP|UDP", "TCP", FIREWALL),
            STRING(5, "InternalClient", KEEP, 256, "", FIREWALL),
            STRING(5, "PortMappingDescription", MODIFIED, 256, "", FIREWALL),
          OBJECT(4, "Stats."),
            UINT(5, "EthernetBytesSent", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetBytesReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetPacketsSent", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetPacketsReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetErrorsSent", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetErrorsReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetDiscardPacketsSent", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetDiscardPacketsReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
            UINT(5, "EthernetMulticastPacketsReceived", LIVE, 0, UINT32_MAX, NULL, WAN),
};
/* clang-format on */

#define ROWS (sizeof outline / sizeof outline[0])
#define DEEPEST 5

static QMIBTREE_SCHEMA_BLOCK(sizeof outline / sizeof outline[0]) block;

static void fill_record(qmibtree_uidinfo_t* record, uint32_t uid, const struct row* row) {
  memset(record, 0, sizeof *record);
  record->uid = uid;
  record->next_uid = -1;
  record->child_uid = -1;
  record->name = row->name;
  record->type = row->type;
  record->flags = row->flags;
  record->defval = row->defval;
  record->comp = row->comp;
  switch (row->type) {
    case QMIBTREE_TYPE_INT:
      record->int_min = (int32_t)row->min;
      record->int_max = (int32_t)row->max;
      break;
    case QMIBTREE_TYPE_UINT:
      record->uint_min = (uint32_t)row->min;
      record->uint_max = (uint32_t)row->max;
      break;
    default:
      record->max_len = (uint32_t)row->max;
  }
  record->ext_fn[MODEL_WORDS] = (void*)row->words;
}

/* A row is its elder sibling's next, or its parent's first child. */
static void link_records(void) {
  int32_t newest[DEEPEST + 2]; /* by depth; -1: none yet below the newest parent */
  newest[0] = 0;
  newest[1] = -1;
  for (int32_t uid = 1; uid < (int32_t)ROWS; ++uid) {
    const uint32_t depth = outline[uid].depth;
    if (newest[depth] >= 0)
      block.uidinfo[newest[depth]].next_uid = uid;
    else
      block.uidinfo[newest[depth - 1]].child_uid = uid;
    newest[depth] = uid;
    newest[depth + 1] = -1;
  }
}

qmibtree_schema_t* model_build(void) {
  block.schema_tag = 1;
  block.uidinfo_num = ROWS;
  for (uint32_t uid = 0; uid < ROWS; ++uid) fill_record(&block.uidinfo[uid], uid, &outline[uid]);
  link_records();
  return QMIBTREE_SCHEMA(&block);
}
