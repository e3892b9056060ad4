"""Fleets to look at: four boxes at night, and two thousand."""
import time

from canned import Owner, box, plan, unit


def night():
    """Of two pairs one box carries traffic that does not leave, so the plan stands still."""
    owner = Owner()
    owner.budgets = {"pair": 1, "plane": 1, "site": 1}
    why = "up3: loud: out 41.8 Mbps, steady, 418 times the threshold of 100 kbps, and 2 more"
    labels = lambda pair, plane: {"pair": f"spine-{pair}", "plane": plane, "site": "fra"}
    owner.put(box("spine-3a", labels(3, "a")), box("spine-3b", labels(3, "b"), unit("entering", f"draining by plan-7: {why}")),
              box("spine-4a", labels(4, "a")), box("spine-4b", labels(4, "b")))
    fault = f"is not quiet after 30 min: {why}"
    owner.plans = [plan("plan-7", "paused", wave=2, done=1, why=f"spine-3b/fabric {fault}", made=time.time() - 4200,
                        waitsFor=[f"spine-3b/fabric {fault}"], waves=4),
                   plan("plan-5", "finished", wave=2, waves=2, done=4, by="bob", made=time.time() - 90000)]
    owner.details[("spine-3b", "fabric")] = {
        "order": {"number": 1042, "want": "maintenance", "plan": "plan-7", "issued": time.time() - 1900, "expires":
                  time.time() - 1780, "open": True, "acknowledged": 1042, "outcome": "carried"},
        "unsettled": [{"interface": "up3", "verdict": "loud", "bitsRate": 41.8e6,
                       "why": "out 41.8 Mbps, steady, 418 times the threshold of 100 kbps"},
                      {"interface": "up5", "verdict": "quiet", "bitsRate": 2100, "why": "12 s of 30 s still needed"},
                      {"interface": "up8", "verdict": "waiting", "bitsRate": None, "why": "no reading for 40 s"}]}
    members = [("spine-3a", "done", ""), ("spine-3b", "draining", fault), ("spine-4a", "waiting", ""), ("spine-4b", "waiting", "")]
    owner.whole_plans["plan-7"] = {**owner.plans[0],
        "request": {"boxes": [], "labels": {"site": "fra"}, "unit": "", "waves": "1", "soakSeconds": 600, "deadlineSeconds": 1800,
                    "atDeadline": "hold", "staySeconds": None},
        "members": [[{"unit": f"{name}/fabric", "step": step, "since": time.time() - 1900, "fault": why, "leftOut": False}]
                    for name, step, why in members]}
    return owner


def large(boxes=2000):
    """Four sites; a plan under way, and here and there a box that has another trouble."""
    owner = Owner()
    owner.budgets = {"site": 25, "pair": 1}
    for i in range(boxes):
        labels = {"site": ("ams", "fra", "lhr", "waw")[i % 4], "pair": f"leaf-{i // 2:04}", "plane": "ab"[i % 2]}
        owner.put(box(f"leaf-{i // 2:04}{'ab'[i % 2]}", labels))
    names = list(owner.boxes)
    change = lambda i, *units, **more: owner.put(box(names[i], owner.boxes[names[i]]["labels"], *units, **more))
    for i in range(1, 49, 4):
        change(i, unit("entering", "draining by plan-12: eth1: loud: in 3.1 Mbps"))
    for i in range(57, 90, 8):
        change(i, unit("inMaintenance", "in maintenance by plan-12"))
    for i in (7, 11, 402):
        change(i, unit("active", "silent for 2 min", out=True), heard=130)
    change(1201, unit("failed", "failed: the hook before-drain.sh ended with status 1"))
    owner.plans = [plan("plan-12", "running", wave=3, waves=9, units=500, done=62, made=time.time() - 8000,
                        waitsFor=[f"{names[i]}/fabric is draining: eth1: loud: in 3.1 Mbps" for i in range(1, 49, 4)])]
    return owner


def stopped():
    """The large one, a little later: traffic does not leave one of its boxes, so the plan stands still."""
    owner = large()
    why = "eth1: loud: out 41.8 Mbps, steady, 418 times the threshold of 100 kbps"
    name = "leaf-0008b"
    for one in [one for one in owner.boxes.values() if one["units"][0]["state"] == "entering" and one["box"] != name]:
        owner.put(box(one["box"], one["labels"]))
    owner.put(box(name, owner.boxes[name]["labels"], unit("entering", f"draining by plan-12: {why}")))
    del owner.boxes["leaf-0600b"]
    owner.put(box("leaf-0600b", {"site": "fra", "pair": "leaf-0600", "plane": "b"}))
    fault = f"{name}/fabric is not quiet after 30 min: {why}"
    owner.plans = [{**owner.plans[0], "state": "paused", "why": fault, "waitsFor": [fault]},
                   plan("plan-11", "finished", wave=2, waves=2, done=4, by="bob", made=time.time() - 90000)]
    return owner
