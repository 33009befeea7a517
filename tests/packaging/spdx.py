#!/usr/bin/env python3
"""Validates an SPDX 2.3 document by what the format requires, and by what pkg-config here says."""
import json
import re
import subprocess
import sys
from pathlib import Path

ID = r'SPDXRef-[A-Za-z0-9.-]+'
DOCUMENT = {
    'spdxVersion': r'SPDX-2\.3',
    'dataLicense': r'CC0-1\.0',
    'SPDXID': r'SPDXRef-DOCUMENT',
    'name': r'.+',
    'documentNamespace': r'https?://[^\s#]+',
}
CREATION = {
    'created': r'\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ',
    'creators': r'(Person|Organization): .+|Tool: \S+-\S+',
}
PACKAGE = {
    'SPDXID': ID,
    'name': r'.+',
    'downloadLocation': r'NOASSERTION|NONE|\w+://\S+',
    'filesAnalyzed': r'False',  # Else its files have to be described, with their digests.
    'versionInfo': r'\d\S*',
    'supplier': r'NOASSERTION|(Person|Organization): .+ \(\S+@\S+\)',
    'primaryPackagePurpose': r'APPLICATION|LIBRARY|SOURCE',
}
RELATIONSHIP = {
    'spdxElementId': ID,
    'relatedSpdxElement': ID,
    'relationshipType': r'DESCRIBES|CONTAINS|DYNAMIC_LINK|BUILD_TOOL_OF',
}
OPTIONAL = {'versionInfo', 'supplier'}
MODULES = {'Qt': 'Qt6Core', 'curl': 'libcurl', 'OpenSSL': 'libcrypto', 'libarchive': 'libarchive',
           'libmicrohttpd': 'libmicrohttpd', 'libxcb': 'xcb'}

faults = []


def expect(holds, fault):
    if not holds:
        faults.append(fault)


def validate(item, fields):
    for field, pattern in fields.items():
        values = item.get(field, [] if field in OPTIONAL else '')
        for value in values if isinstance(values, list) else [values]:
            expect(re.fullmatch(pattern, str(value)), f'{field} {value!r} of {item}')


document = json.loads(Path(sys.argv[1]).read_text(encoding='utf-8'))
packages = {package['name']: package for package in document['packages']}
validate(document, DOCUMENT)
validate(document['creationInfo'], CREATION)
for package in document['packages']:
    validate(package, PACKAGE)
for relationship in document['relationships']:
    validate(relationship, RELATIONSHIP)

ids = ['SPDXRef-DOCUMENT'] + [package['SPDXID'] for package in document['packages']]
expect(len(set(ids)) == len(ids), f'an id stands for two: {sorted(ids)}')
ends = {relationship[end] for relationship in document['relationships']
        for end in ('spdxElementId', 'relatedSpdxElement')}
expect(ends == set(ids), f'related and described differ: {sorted(ends.symmetric_difference(ids))}')

for name, module in MODULES.items():
    found = subprocess.run(['pkg-config', '--modversion', module], stdout=subprocess.PIPE, text=True)
    if name in packages and found.returncode == 0:
        expect(packages[name].get('versionInfo') == found.stdout.strip(),
               f'{name} {packages[name].get("versionInfo")}, and not {found.stdout.strip()}')
expect({'Qt', 'curl', 'OpenSSL'} <= packages.keys(), f'a library is missing: {sorted(packages)}')
sys.exit('\n'.join(faults) or 0)
