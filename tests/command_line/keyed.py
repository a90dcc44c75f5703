"""Keyed archives of print pages as an archiver of another make writes them: for tests and as seeds of fuzzing."""

import datetime
from plistlib import UID

EPOCH = datetime.datetime(2001, 1, 1)


class Made:
    """An object to be archived: its class with the ancestors, and its entries. Numbers in a Boxed are objects."""

    def __init__(self, classes, entries):
        self.classes, self.entries = classes.split(), entries


class Boxed:
    def __init__(self, value):
        self.value = value


def keyed(root):
    """The tree of a keyed archive, as an archiver of another make writes it: immutable lists, each text once."""
    objects, classes, texts = ["$null"], {}, {}

    def put(value):
        if value is None:
            return UID(0)
        if isinstance(value, str):
            if value not in texts:
                texts[value] = len(objects)
                objects.append(value)
            return UID(texts[value])
        if isinstance(value, list):
            value = Made("NSArray NSObject", {"NS.objects": value})
        elif isinstance(value, dict):
            value = Made("NSDictionary NSObject", {"NS.keys": list(value), "NS.objects": list(value.values())})
        elif isinstance(value, datetime.datetime):
            value = Made("NSDate NSObject", {"NS.time": (value - EPOCH).total_seconds()})
        place = len(objects)
        if not isinstance(value, Made):
            objects.append(value.value if isinstance(value, Boxed) else value)
            return UID(place)
        node = {}
        objects.append(node)
        for key, entry in value.entries.items():
            if key.startswith("NS.") and isinstance(entry, list):
                node[key] = [put(each) for each in entry]
            else:
                node[key] = entry if isinstance(entry, (int, float, UID)) else put(entry)
        name = tuple(value.classes)
        if name not in classes:
            classes[name] = UID(len(objects))
            objects.append({"$classes": value.classes, "$classname": value.classes[0]})
        node["$class"] = classes[name]
        return UID(place)

    top = put(root)
    return {"$archiver": "NSKeyedArchiver", "$version": 100000, "$top": {"root": top}, "$objects": objects}


def url(text, base=None):
    return Made("NSURL NSObject", {"NS.base": base, "NS.relative": text})


DNP = "KLARON_PrintPage_DNP KLARON_PrintPage NSObject"
HUE = "CIHueAdjust CIFilter NSObject"


def page(**entries):
    return Made(DNP, {"self." + key: value for key, value in entries.items()})
