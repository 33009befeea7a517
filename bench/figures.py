"""The figures by name. Each is a function from a Bench to rows."""

import costs
import serving
import static_site
import transfers

ALL = {
    "digest": transfers.digest,
    "download": transfers.download,
    "road": transfers.road,
    "connections": serving.connections,
    "linked": costs.linked,
    "sealing": costs.sealing,
    "size": costs.size,
    "service": serving.service,
    "crowd": serving.crowd,
    "static": static_site.static,
}
