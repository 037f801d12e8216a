#!/usr/bin/python3
"""An independent property-list peer for the codec tests, built on Python's plistlib.

  plist_peer.py dump FILE          print FILE (binary or XML) as tagged JSON
  plist_peer.py write JSON OUT     write the tagged JSON value to OUT as a binary list
  plist_peer.py unarchive FILE     resolve a keyed archive into tagged JSON objects
  plist_peer.py archive JSON OUT   write a keyed archive of tagged JSON objects

Tagged JSON keeps every type apart: {"t": "int", "v": "-5"}, {"t": "date", "v":
seconds since 1970 as a float}, {"t": "data", "v": base64}, {"t": "uid", "v": n},
{"t": "object", "class": name, "v": {fields}} for archived objects.
"""
import base64
import datetime
import json
import plistlib
import sys

EPOCH_2001 = datetime.datetime(2001, 1, 1, tzinfo=datetime.timezone.utc)


def tag(v):
    if isinstance(v, bool):
        return {"t": "bool", "v": v}
    if isinstance(v, int):
        return {"t": "int", "v": str(v)}
    if isinstance(v, float):
        return {"t": "real", "v": v}
    if isinstance(v, str):
        return {"t": "string", "v": v}
    if isinstance(v, bytes):
        return {"t": "data", "v": base64.b64encode(v).decode()}
    if isinstance(v, datetime.datetime):
        if v.tzinfo is None:
            v = v.replace(tzinfo=datetime.timezone.utc)
        return {"t": "date", "v": v.timestamp()}
    if isinstance(v, plistlib.UID):
        return {"t": "uid", "v": v.data}
    if isinstance(v, list):
        return {"t": "array", "v": [tag(e) for e in v]}
    if isinstance(v, dict):
        return {"t": "dict", "v": {k: tag(e) for k, e in v.items()}}
    raise TypeError(type(v))


def untag(j):
    t, v = j["t"], j.get("v")
    if t == "bool":
        return bool(v)
    if t == "int":
        return int(v)
    if t == "real":
        return float(v)
    if t == "string":
        return v
    if t == "data":
        return base64.b64decode(v)
    if t == "date":
        return datetime.datetime.fromtimestamp(v, datetime.timezone.utc).replace(tzinfo=None)
    if t == "uid":
        return plistlib.UID(v)
    if t == "array":
        return [untag(e) for e in v]
    if t == "dict":
        return {k: untag(e) for k, e in v.items()}
    raise ValueError(t)


def unarchive(archive):
    """A generic keyed-archive reader, written from the format, not from our code."""
    objects = archive["$objects"]
    assert archive["$archiver"] == "NSKeyedArchiver"
    assert objects[0] == "$null"

    def resolve(v, seen=()):
        if not isinstance(v, plistlib.UID):
            return tag(v)
        if v.data == 0:
            return None
        if v.data in seen:
            raise ValueError("cycle")
        o = objects[v.data]
        seen = seen + (v.data,)
        if not isinstance(o, dict) or "$class" not in o:
            return tag(o)
        cls = objects[o["$class"].data]
        name = cls["$classname"]
        chain = cls["$classes"]
        if name in ("NSArray", "NSMutableArray"):
            return {"t": "array", "class": name, "chain": chain,
                    "v": [resolve(e, seen) for e in o["NS.objects"]]}
        if name in ("NSDictionary", "NSMutableDictionary"):
            keys = [resolve(k, seen)["v"] for k in o["NS.keys"]]
            return {"t": "dict", "class": name, "chain": chain,
                    "v": dict(zip(keys, (resolve(e, seen) for e in o["NS.objects"])))}
        if name == "NSDate":
            return {"t": "date", "class": name,
                    "v": (EPOCH_2001 + datetime.timedelta(seconds=o["NS.time"])).timestamp()}
        if name == "NSNull":
            return {"t": "null", "class": name}
        return {"t": "object", "class": name, "chain": chain,
                "v": {k: resolve(e, seen) for k, e in o.items() if k != "$class"}}

    return resolve(archive["$top"]["root"])


def archive(root):
    """Writes objects the way Foundation lays them out, but with this writer's
    own choices: no sharing of equal strings, classes recorded as they come."""
    objects = ["$null"]
    classes = {}

    def class_uid(name, chain):
        if name not in classes:
            objects.append({"$classname": name, "$classes": chain})
            classes[name] = plistlib.UID(len(objects) - 1)
        return classes[name]

    def put(j):
        if j is None:
            return plistlib.UID(0)
        t = j["t"]
        if t in ("string", "int", "real", "bool", "data"):
            objects.append(untag(j))
            return plistlib.UID(len(objects) - 1)
        slot = len(objects)
        objects.append(None)
        if t == "date":
            o = {"NS.time": j["v"] - EPOCH_2001.timestamp(),
                 "$class": class_uid("NSDate", ["NSDate", "NSObject"])}
        elif t == "null":
            o = {"$class": class_uid("NSNull", ["NSNull", "NSObject"])}
        elif t == "array":
            o = {"NS.objects": [put(e) for e in j["v"]],
                 "$class": class_uid("NSArray", ["NSArray", "NSObject"])}
        elif t == "dict":
            items = list(j["v"].items())
            o = {"NS.keys": [put({"t": "string", "v": k}) for k, _ in items],
                 "NS.objects": [put(e) for _, e in items],
                 "$class": class_uid("NSDictionary", ["NSDictionary", "NSObject"])}
        elif t == "object":
            o = {}
            for k, e in j["v"].items():
                if isinstance(e, dict) and e.get("t") == "inline":
                    o[k] = untag(e["v"])
                else:
                    o[k] = put(e)
            o["$class"] = class_uid(j["class"], [j["class"], "NSObject"])
        else:
            raise ValueError(t)
        objects[slot] = o
        return plistlib.UID(slot)

    top = put(root)
    return {"$version": 100000, "$archiver": "NSKeyedArchiver",
            "$top": {"root": top}, "$objects": objects}


def main():
    cmd = sys.argv[1]
    if cmd == "dump":
        with open(sys.argv[2], "rb") as f:
            json.dump(tag(plistlib.load(f)), sys.stdout)
    elif cmd == "write":
        with open(sys.argv[2]) as f:
            value = untag(json.load(f))
        with open(sys.argv[3], "wb") as f:
            plistlib.dump(value, f, fmt=plistlib.FMT_BINARY, sort_keys=False)
    elif cmd == "unarchive":
        with open(sys.argv[2], "rb") as f:
            json.dump(unarchive(plistlib.load(f)), sys.stdout)
    elif cmd == "archive":
        with open(sys.argv[2]) as f:
            root = json.load(f)
        with open(sys.argv[3], "wb") as f:
            plistlib.dump(archive(root), f, fmt=plistlib.FMT_BINARY, sort_keys=False)
    else:
        sys.exit("unknown command " + cmd)


if __name__ == "__main__":
    main()
