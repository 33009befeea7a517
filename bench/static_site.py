"""The figures about a static site that zvupdate-publish has made."""

import json

import servers
from measuring import Failed, compare, race, run
from sealing import seal
from serving import CHECK, CONNECTIONS, requests_a_second
from transfers import MIB, post, serve


def static(bench):
    """The site beside nginx answering with a text from its configuration, and zvupdate-service."""
    url, _ = serve(bench, MIB)
    catalogue = bench.folder / "releases" / "releases.json"
    known = json.loads(catalogue.read_text())
    known["products"][0]["withdrawn"] = ["1"]  # The version that asks; the site knows no others.
    catalogue.write_text(json.dumps(known))
    site = bench.folder / "site"
    run((bench.bin / "zvupdate-publish", "site", "--catalogue", catalogue.parent,
         "--output", site, "--format", "nginx"), bench.folder)

    # As many bytes as the site's own reply.
    reply = post(bench, url + seal(CHECK))
    current = site / "current"
    nginx = bench.exits.enter_context(servers.nginx(
        site, bench.folder / "nginx", http=f"include {current}/hash.conf; include {current}/nginx.conf;",
        server=f"include {current}/locations.conf;\nlocation = /return {{\n"
               f"default_type application/json;\nreturn 200 '{reply}';\n}}"))
    checks = {"site": f"{nginx}Update/ZVDLCtl.dll?dt={seal(CHECK)}", "return": f"{nginx}return",
              "service": url + seal(CHECK)}
    if post(bench, checks["site"]) != reply:
        raise Failed("the site answers something else than zvupdate-service")
    samples = race(bench.rounds, {name: requests_a_second(bench, target)
                                  for name, target in checks.items()})
    yield compare(9, f"checks a second of a static site at {CONNECTIONS} connections", "1/s",
                  samples["site"], samples["return"], "nginx, return", limit=0.8, at_least=True)
    yield compare(9, "the same beside the small service", "1/s", samples["site"],
                  samples["service"], "zvupdate-service")
