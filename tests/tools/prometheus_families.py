#!/usr/bin/python3
"""Reads Prometheus text exposition from standard input with the reference
parser (python3-prometheus-client) and prints its metric families as JSON:
[{"name", "type", "help", "samples": [{"name", "labels", "value"}]}].
A line the parser refuses ends the program with status 1 and its reason."""
import json
import sys

from prometheus_client.parser import text_string_to_metric_families

try:
    families = [
        {
            "name": family.name,
            "type": family.type,
            "help": family.documentation,
            "samples": [
                {"name": s.name, "labels": s.labels, "value": s.value}
                for s in family.samples
            ],
        }
        for family in text_string_to_metric_families(sys.stdin.read())
    ]
except Exception as error:  # the parser raises plain ValueErrors and more
    print("not Prometheus text: %s" % error, file=sys.stderr)
    sys.exit(1)
json.dump(families, sys.stdout)
