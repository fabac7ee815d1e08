#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""sbom.py FOLDER VERSION DATE: a bill of materials in SPDX 2.3 (JSON) of the files in FOLDER, on standard output.

Each file with its hash; what is compiled into it (header libraries, run-time libraries of mingw-w64, the measurement); and what the
Debian packages ask for at run time, by their own Depends.
"""
import hashlib
import json
import pathlib
import re
import subprocess
import sys

folder, version, date = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]

# What comes from others and is part of a file: name, licence, Debian package that it came from, files that have it.
CONTAINED = [
    ("KEMAR HRTF measurement", "LicenseRef-KEMAR", None, r"."),
    ("Flite's voice slt", "LicenseRef-Flite", "flite", r"^quorel-panel_|setup\.exe$|\.zip$"),
    ("CLI11", "BSD-3-Clause", "libcli11-dev", r"^quorel_|^quorel-panel_|setup\.exe$|\.zip$"),
    ("JSON for Modern C++", "MIT", "nlohmann-json3-dev", r"^quorel_|^quorel-panel_|setup\.exe$|\.zip$"),
    ("LV2", "ISC", "lv2-dev", r"^quorel-lv2_"),
    ("libgcc and libstdc++", "GPL-3.0-or-later WITH GCC-exception-3.1", "g++-mingw-w64-x86-64-posix", r"setup\.exe$|\.zip$"),
    ("mingw-w64 run-time", "ZPL-2.1", "mingw-w64-x86-64-dev", r"setup\.exe$|\.zip$"),
    ("NSIS", "Zlib", "nsis-common", r"setup\.exe$"),
]


def identifier(text):
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.]+", "-", text)


def installed(package):
    found = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True)
    return found.stdout if found.returncode == 0 else "NOASSERTION"


def package(name, licence, of):
    return {"SPDXID": identifier("Package-" + name), "name": name, "versionInfo": of, "downloadLocation": "NOASSERTION",
            "filesAnalyzed": False, "licenseConcluded": licence, "licenseDeclared": licence, "copyrightText": "NOASSERTION"}


packages = {"quorel": package("quorel", "MIT", version)}
files, relations = [], [("SPDXRef-DOCUMENT", "DESCRIBES", packages["quorel"]["SPDXID"])]
artifacts = sorted(path for path in folder.iterdir() if path.suffix in (".deb", ".gz", ".zip", ".exe"))
for path in artifacts:
    data = path.read_bytes()
    this = identifier("File-" + path.name)
    files.append({"SPDXID": this, "fileName": "./" + path.name, "licenseConcluded": "NOASSERTION",
                  "copyrightText": "Copyright 2026 the QUOREL authors",
                  "checksums": [{"algorithm": name, "checksumValue": hashlib.new(name.lower(), data).hexdigest()}
                                for name in ("SHA1", "SHA256")]})
    relations.append((packages["quorel"]["SPDXID"], "CONTAINS", this))
    for name, licence, origin, where in CONTAINED:
        if re.search(where, path.name):
            packages.setdefault(name, package(name, licence, installed(origin) if origin else "1994"))
            relations.append((this, "CONTAINS", packages[name]["SPDXID"]))
    if path.suffix == ".deb" and "-dbgsym_" not in path.name:
        needs = subprocess.run(["dpkg-deb", "-f", path, "Depends"], capture_output=True, text=True, check=True).stdout
        for need in filter(None, (part.split("|")[0].split("(")[0].strip() for part in needs.split(","))):
            if "quorel" not in need:
                packages.setdefault(need, package(need, "NOASSERTION", installed(need)))
                relations.append((this, "DEPENDS_ON", packages[need]["SPDXID"]))

content = hashlib.sha256("".join(entry["checksums"][1]["checksumValue"] for entry in files).encode()).hexdigest()
json.dump({
    "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": f"quorel-{version}",
    "documentNamespace": f"urn:quorel:sbom:{version}:{content}",
    "creationInfo": {"created": date, "creators": ["Tool: packaging/sbom.py"]},
    "hasExtractedLicensingInfos": [{
        "licenseId": "LicenseRef-KEMAR", "name": "Terms of the KEMAR measurement",
        "extractedText": "This data is Copyright 1994 by the MIT Media Laboratory. It is provided free with no restrictions on use, "
                         "provided the authors are cited when the data is used in any research or commercial application."}, {
        "licenseId": "LicenseRef-Flite", "name": "Terms of Flite and its voices",
        "extractedText": (pathlib.Path(__file__).parent.parent / "LICENSES/LicenseRef-Flite.txt").read_text()}],
    "packages": list(packages.values()), "files": files,
    "relationships": [{"spdxElementId": a, "relationshipType": how, "relatedSpdxElement": b} for a, how, b in relations],
}, sys.stdout, indent=1)
print()
