#!/usr/bin/env bash
# Makes an example set for `hmxrelay --security`: two authorities, and a directory for each machine. Partition: that of --partition.
# Usage: relay_security.sh DIR MACHINE...
set -euo pipefail

if [ $# -lt 2 ]; then
    echo "usage: relay_security.sh DIR MACHINE..." >&2
    exit 2
fi
dir=$1
shift
umask 077
mkdir -p "$dir/authority"
cd "$dir"

authority() { # NAME: a key and a certificate signed with it
    openssl ecparam -name prime256v1 -genkey -noout -out "authority/$1.key"
    openssl req -x509 -new -key "authority/$1.key" -days 3650 -subj "/CN=hmx $1 authority" -out "authority/$1.pem"
}
signed() { # FILE: beside it, signed by who decides about permissions
    openssl smime -sign -in "$1.xml" -text -out "$1.p7s" -signer authority/permissions.pem -inkey authority/permissions.key
    rm "$1.xml"
}
authority identity
authority permissions

# Everybody has to be known; everything that is sent is encrypted.
cat >governance.xml <<XML
<?xml version="1.0" encoding="UTF-8"?>
<dds xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
     xsi:noNamespaceSchemaLocation="https://www.omg.org/spec/DDS-SECURITY/20170901/omg_shared_ca_governance.xsd">
  <domain_access_rules>
    <domain_rule>
      <domains><id_range><min>0</min><max>230</max></id_range></domains>
      <allow_unauthenticated_participants>false</allow_unauthenticated_participants>
      <enable_join_access_control>true</enable_join_access_control>
      <discovery_protection_kind>ENCRYPT</discovery_protection_kind>
      <liveliness_protection_kind>ENCRYPT</liveliness_protection_kind>
      <rtps_protection_kind>SIGN</rtps_protection_kind>
      <topic_access_rules>
        <topic_rule>
          <topic_expression>*</topic_expression>
          <enable_discovery_protection>true</enable_discovery_protection>
          <enable_liveliness_protection>true</enable_liveliness_protection>
          <enable_read_access_control>true</enable_read_access_control>
          <enable_write_access_control>true</enable_write_access_control>
          <metadata_protection_kind>ENCRYPT</metadata_protection_kind>
          <data_protection_kind>NONE</data_protection_kind>
        </topic_rule>
      </topic_access_rules>
    </domain_rule>
  </domain_access_rules>
</dds>
XML
signed governance

for machine in "$@"; do
    mkdir -p "$machine"
    openssl ecparam -name prime256v1 -genkey -noout -out "$machine/key.pem"
    openssl req -new -key "$machine/key.pem" -subj "/CN=$machine" -out "$machine/request.pem"
    openssl x509 -req -in "$machine/request.pem" -CA authority/identity.pem -CAkey authority/identity.key -CAcreateserial \
        -days 3650 -out "$machine/certificate.pem" 2>/dev/null
    rm "$machine/request.pem"
    cat >"$machine/permissions.xml" <<XML
<?xml version="1.0" encoding="UTF-8"?>
<dds xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
     xsi:noNamespaceSchemaLocation="https://www.omg.org/spec/DDS-SECURITY/20170901/omg_shared_ca_permissions.xsd">
  <permissions>
    <grant name="$machine">
      <subject_name>CN=$machine</subject_name>
      <validity><not_before>2020-01-01T00:00:00</not_before><not_after>2036-01-01T00:00:00</not_after></validity>
      <allow_rule>
        <domains><id_range><min>0</min><max>230</max></id_range></domains>
        <publish><topics><topic>hmx_*</topic></topics><partitions><partition>*</partition></partitions></publish>
        <subscribe><topics><topic>hmx_*</topic></topics><partitions><partition>*</partition></partitions></subscribe>
      </allow_rule>
      <default>DENY</default>
    </grant>
  </permissions>
</dds>
XML
    signed "$machine/permissions"
    cp authority/identity.pem "$machine/identity_ca.pem"
    cp authority/permissions.pem "$machine/permissions_ca.pem"
    cp governance.p7s "$machine/"
done
rm -f governance.p7s authority/*.srl
