"""The servers that are downloaded from: nginx, and zvupdate-service. Each has a loopback port of
its own for as long as the bench runs, and none touches what the system has running."""

import contextlib
import json
import os
import socket
import subprocess
import time

NGINX = """\
daemon off;
{user}
worker_processes auto;
pid {folder}/pid;
error_log {folder}/error.log;
events {{ worker_connections 4096; }}
http {{
    access_log off;
    sendfile on;
    tcp_nopush on;
    keepalive_requests 100000000;
    default_type application/octet-stream;
    {http}
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    server {{
        listen 127.0.0.1:{port};
        root {root};
        {server}
    }}
}}
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(condition, what):
    deadline = time.monotonic() + 30
    while not condition():
        if time.monotonic() > deadline:
            raise TimeoutError(f"waited 30 seconds in vain until {what}")
        time.sleep(0.01)


def is_listening(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


@contextlib.contextmanager
def running(argv, **options):
    process = subprocess.Popen([str(part) for part in argv], **options)
    try:
        yield process
    finally:
        process.terminate()
        process.wait()


@contextlib.contextmanager
def nginx(root, folder, http="", server=""):
    """Serves a folder's files, which stay in the page cache; yields the base URL. http and server are
    further directives for those two places."""
    folder.mkdir()
    port = free_port()
    # As root, its workers would otherwise be somebody who may not read the files.
    user = "user root;" if os.geteuid() == 0 else ""
    config = folder / "nginx.conf"
    config.write_text(NGINX.format(folder=folder, root=root, port=port, user=user,
                                   http=http, server=server))
    path = os.environ["PATH"] + ":/usr/sbin"
    with running(["nginx", "-p", folder, "-e", folder / "error.log", "-c", config],
                 env=os.environ | {"PATH": path}):
        wait_for(lambda: is_listening(port), "nginx listens")
        yield f"http://127.0.0.1:{port}/"


@contextlib.contextmanager
def service(program, releases, folder):
    """Runs zvupdate-service; yields its base URL and the path of its log."""
    folder.mkdir()
    log = folder / "service.log"
    url = folder / "url"
    with open(log, "w") as errors, open(url, "w") as output:
        with running([program, "--directory", releases], stdout=output, stderr=errors):
            wait_for(lambda: url.read_text().endswith("\n"), "zvupdate-service is up")
            yield url.read_text().splitlines()[0], log


def write_releases(folder, installer):
    """Makes the folder that zvupdate-service serves: version 2 of "Bench"."""
    notes = {"en": "Starts faster, and can be updated.", "zh-TW": "啟動更快，並且可以更新。",
             "zh-CN": "启动更快，并且可以更新。"}
    release = {"version": "2", "installer": str(installer.relative_to(folder)), "notes": notes}
    catalogue = {"products": [{"id": "Bench", "releases": [release]}]}
    (folder / "releases.json").write_text(json.dumps(catalogue), encoding="utf-8")


def point_clients_to(url, home):
    """Makes the library ask this service, in hosts whose home directory this is."""
    override = home / "Documents" / "ConsoleZVUpdate.mac"
    override.parent.mkdir(parents=True, exist_ok=True)
    override.write_text(url)
