#!/bin/sh
# SPDX-License-Identifier: MIT
# catalog_test.sh SIGN MODULE WORK: the signed module stands in a catalog that SIGN signs with a certificate made for the test, and
# by both of them the module is known; a changed module, and a changed catalog, are not. What makes catalogs runs on Windows alone,
# so this one is put together from its description, with one member. Below 256 bytes older signers take it for none.
set -eu
sign=$1 module=$2 work=$3
rm -rf "$work"
mkdir -p "$work"
cp "$module" "$work/module.dll"
cd "$work"

fail() {
    echo "$*"
    cat said
    exit 1
}
verify() {
    osslsigncode verify -CAfile certificate.pem "$@" >said 2>&1
}

openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out certificate.pem -days 2 -subj '/CN=QUOREL test' \
    -addext keyUsage=digitalSignature -addext extendedKeyUsage=codeSigning 2>said || fail 'no certificate'
"$sign" certificate.pem key.pem module.dll 2>said || fail 'the module was not signed'
verify -in module.dll || fail 'the signed module does not verify'
hash=$(sed -n 's/^Calculated message digest *: *\([0-9A-F]*\) *$/\1/p' said)
[ ${#hash} -eq 64 ] || fail 'the module has no SHA-256'

cat >catalog.conf <<END
asn1 = SEQUENCE:content
[content]
type = OID:pkcs7-signedData
data = EXPLICIT:0,SEQUENCE:signed
[signed]
version = INTEGER:1
digests = SET
list = SEQUENCE:list
signers = SET
[list]
type = OID:1.3.6.1.4.1.311.10.1
list = EXPLICIT:0,SEQUENCE:members_list
[members_list]
usage = SEQUENCE:usage
identifier = FORMAT:HEX,OCTETSTRING:00112233445566778899AABBCCDDEEFF
time = UTCTIME:261122000000Z
algorithm = SEQUENCE:member_algorithm
members = SEQUENCE:members
[usage]
type = OID:1.3.6.1.4.1.311.12.1.1
[member_algorithm]
type = OID:1.3.6.1.4.1.311.12.1.3
none = NULL
[members]
module = SEQUENCE:module
[module]
name = FORMAT:HEX,OCTETSTRING:$hash
attributes = SET:attributes
[attributes]
hash = SEQUENCE:attribute
[attribute]
type = OID:1.3.6.1.4.1.311.2.1.4
values = SET:values
[values]
indirect = SEQUENCE:indirect
[indirect]
data = SEQUENCE:image_data
digest = SEQUENCE:digest
[image_data]
type = OID:1.3.6.1.4.1.311.2.1.15
image = SEQUENCE:image
[image]
flags = FORMAT:BITLIST,BITSTRING:0
link = EXPLICIT:0,EXPLICIT:2,IMPLICIT:0,FORMAT:UTF8,BMP:<<<Obsolete>>>
[digest]
algorithm = SEQUENCE:sha256
value = FORMAT:HEX,OCTETSTRING:$hash
[sha256]
type = OID:sha256
none = NULL
END
openssl asn1parse -genconf catalog.conf -noout -out zelta.cat 2>said || fail 'no catalog'
if verify -in zelta.cat; then
    fail 'a catalog without a signature verifies'
fi
"$sign" certificate.pem key.pem zelta.cat 2>said || fail 'the catalog was not signed'
verify -in zelta.cat || fail 'the signed catalog does not verify'
verify -catalog zelta.cat -in module.dll || fail 'the module is not known by the catalog'

cp module.dll changed.dll
printf x | dd of=changed.dll bs=1 seek=8192 conv=notrunc 2>/dev/null
if verify -catalog zelta.cat -in changed.dll; then
    fail 'a changed module is known by the catalog'
fi
cp zelta.cat changed.cat
printf '\001' | dd of=changed.cat bs=1 seek=100 conv=notrunc 2>/dev/null
if verify -in changed.cat; then
    fail 'a changed catalog verifies'
fi
echo 'the catalog was signed, and the module is known by it'
