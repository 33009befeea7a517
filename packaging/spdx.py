#!/usr/bin/env python3
"""Writes an SPDX 2.3 document of what is shipped, and of what that is linked to.

The libraries that a file needs are read from the file itself, and their versions come from the build,
which has found them. A library that LIBRARIES does not know stops the build: somebody has to say whose
it is before it is shipped.
"""
import argparse
import json
import os
import platform
import re
import subprocess
import uuid
from email.utils import parseaddr
from pathlib import Path

# Whose a library is, by the beginning of its name.
LIBRARIES = {
    'libQt6': 'Qt',
    'libarchive': 'libarchive',
    'libcrypto': 'OpenSSL',
    'libcurl': 'curl',
    'libmicrohttpd': 'libmicrohttpd',
    'libxcb': 'libxcb',
    'libstdc++': 'GCC',
    'libgcc_s': 'GCC',
    'libc.': 'glibc',
    'libm.': 'glibc',
    'ld-linux': 'glibc',
}


def spdx_id(name):
    return 'SPDXRef-' + re.sub(r'[^A-Za-z0-9.]', '-', name)


def package(name, version, purpose, **more):
    described = {
        'SPDXID': spdx_id(name),
        'name': name,
        'downloadLocation': 'NOASSERTION',
        'filesAnalyzed': False,
        'primaryPackagePurpose': purpose,
        **more,
    }
    if version:
        described['versionInfo'] = version
    return described


def component(name, version):
    """What others have made."""
    more = {}
    if version:
        more['externalRefs'] = [{
            'referenceCategory': 'PACKAGE-MANAGER',
            'referenceType': 'purl',
            'referenceLocator': f'pkg:generic/{name.lower()}@{version}',
        }]
    return package(name, version, 'LIBRARY', supplier='NOASSERTION', **more)


def relationship(one, kind, other, **more):
    return {'spdxElementId': spdx_id(one), 'relationshipType': kind,
            'relatedSpdxElement': spdx_id(other), **more}


def dynamic_entries(readelf, file):
    """The file's own SONAME, or None, and those that it needs."""
    done = subprocess.run([readelf, '--dynamic', '--wide', file], stdout=subprocess.PIPE, text=True,
                          check=True, env={**os.environ, 'LC_ALL': 'C'})
    names = re.findall(r'\((SONAME|NEEDED)\).*\[(.+)\]', done.stdout)
    return (next((name for tag, name in names if tag == 'SONAME'), None),
            [name for tag, name in names if tag == 'NEEDED'])


def owner(library):
    for beginning, name in LIBRARIES.items():
        if library.startswith(beginning):
            return name
    raise SystemExit(f'{library} is linked to, and LIBRARIES in {__file__} does not know whose it is')


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('output', type=Path)
    parser.add_argument('--product', required=True, help='NAME=VERSION of all that is shipped')
    parser.add_argument('--maintainer', required=True, help='NAME <ADDRESS>')
    parser.add_argument('--created', required=True)
    parser.add_argument('--compiler', required=True, help='NAME=VERSION')
    parser.add_argument('--found', action='append', default=[], metavar='NAME=VERSION')
    parser.add_argument('--readelf', default='readelf')
    parser.add_argument('files', nargs='+', help='the libraries and programs')
    options = parser.parse_args()

    product, version = options.product.split('=')
    compiler, compiler_version = options.compiler.split('=')
    versions = dict(found.split('=', 1) for found in options.found)
    versions['glibc'] = platform.libc_ver()[1]
    if compiler == 'GNU':
        versions['GCC'] = compiler_version
    name, address = parseaddr(options.maintainer)
    supplier = f'Organization: {name} ({address})'

    packages = [package(product, version, 'SOURCE', supplier=supplier)]
    relationships = [relationship('DOCUMENT', 'DESCRIBES', product)]
    shipped = {}
    for file in options.files:
        soname, needed = dynamic_entries(options.readelf, file)
        shipped[soname or Path(file).name] = needed
        packages.append(package(soname or Path(file).name, version,
                                'LIBRARY' if soname else 'APPLICATION', supplier=supplier))
    components = set()
    for file, needed in shipped.items():
        relationships.append(relationship(product, 'CONTAINS', file))
        linked = {}
        for library in needed:
            linked.setdefault(library if library in shipped else owner(library), []).append(library)
        for other, libraries in sorted(linked.items()):
            relationships.append(relationship(file, 'DYNAMIC_LINK', other,
                                              comment=', '.join(libraries)))
        components |= linked.keys() - shipped.keys()
    packages += [component(name, versions.get(name)) for name in sorted(components)]
    packages.append(package(f'{compiler} C++ compiler', compiler_version, 'APPLICATION'))
    relationships.append(relationship(f'{compiler} C++ compiler', 'BUILD_TOOL_OF', product))

    # Two documents share a name only when they say the same.
    contents = {'packages': packages, 'relationships': relationships}
    identity = uuid.uuid5(uuid.NAMESPACE_URL, json.dumps(contents))
    options.output.write_text(json.dumps({
        'spdxVersion': 'SPDX-2.3',
        'dataLicense': 'CC0-1.0',
        'SPDXID': spdx_id('DOCUMENT'),
        'name': f'{product}-{version}',
        'documentNamespace': f'https://zvupdate.invalid/spdx/{product}-{version}-{identity}',
        'creationInfo': {
            'created': options.created,
            'creators': [supplier, f'Tool: {Path(__file__).name}-{version}'],
        },
        **contents,
    }, indent=2) + '\n', encoding='utf-8')


if __name__ == '__main__':
    main()
