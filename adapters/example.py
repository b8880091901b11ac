#!/usr/bin/env python3
"""The logging module into a ring of trace files. usage: example.py PREFIX"""
import logging
import sys

import zebulib2

if len(sys.argv) < 2:
    sys.exit("usage: example.py PREFIX")
with zebulib2.Log(sys.argv[1], "python") as log:
    log.set_level(zebulib2.ALL)  # logging decides
    logging.basicConfig(handlers=[zebulib2.Handler(log)], level=logging.INFO)
    logging.getLogger("net").warning("no answer from %s", "192.0.2.7")
    log.put(zebulib2.INFO, "with id and type", id="NET-17", type="W")
