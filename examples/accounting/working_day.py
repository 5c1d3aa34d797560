# The working day that make-log sends to the server: who takes part, what happens to each session,
# and the packets in which the access servers report it. Pure data and arithmetic: nothing random,
# no clock, no input or output, so each run plans the same day. A packet is a list of pairs
# (attribute, value).

import calendar
from dataclasses import dataclass, field
from typing import Callable

MORNING = calendar.timegm((2026, 11, 16, 7, 0, 0))  # first event; the day has ten hours
DAY_S = 10 * 3600

# ---- Who takes part --------------------------------------------------------------------


def hyphens(mac: bytes) -> str:
    return mac.hex("-").upper()


def colons(mac: bytes) -> str:
    return mac.hex(":")


def dotted(mac: bytes) -> str:
    return mac.hex(".", 2)


def bare(mac: bytes) -> str:
    return mac.hex()


@dataclass(frozen=True)
class AccessServer:
    number: int
    identity: dict  # the pairs that name the access server in each of its records
    link: str  # wired, wireless, pppoe or vpn: decides which other pairs there are
    spell_mac: Callable[[bytes], str]
    session_id: str  # format of Acct-Session-Id over n, which a restart sets back to 0
    devices: int
    restart_s: int = 0  # 0: none; else every device comes back after it
    says_off: bool = False  # Accounting-Off before the restart, or power loss without it


# Servers 1 and 2 count their sessions alike, so the same Acct-Session-Id means different sessions.
ACCESS_SERVERS = [
    AccessServer(
        1,
        {"NAS-IP-Address": "192.0.2.11", "NAS-Identifier": "access-1.example.net"},
        "wired", hyphens, "{:08X}", 72,
    ),
    AccessServer(
        2,
        {"NAS-IP-Address": "192.0.2.12", "NAS-Identifier": "access-2.example.net"},
        "wired", dotted, "{:08X}", 32, restart_s=5 * 3600 + 1800, says_off=True,
    ),
    AccessServer(
        3,
        {"NAS-IP-Address": "192.0.2.21", "NAS-Identifier": "wlan-3.example.com"},
        "wireless", colons, "6917A{:03x}/02:00:5e:00:53:f3/{}", 90,
    ),
    AccessServer(
        4,
        {"NAS-IP-Address": "192.0.2.31", "NAS-Identifier": "bng-4.example.net"},
        "pppoe", bare, "bng-4 lag-1:100.{} 6919EC{:02X}", 56,
    ),
    AccessServer(
        5, {"NAS-IPv6-Address": "2001:db8:0:2::41"},
        "vpn", bare, "vpn-{}", 24,
    ),
    AccessServer(
        6, {"NAS-Identifier": "edge-6.example.org"},
        "wired", hyphens, "edge6-{:05d}", 10, restart_s=6 * 3600,
    ),
]

# Names that a careless reader gets wrong. The last holds an octet that is not UTF-8.
AWKWARD_NAMES = [
    'pat "trish" o\'neil@example.net',
    "EXAMPLE\\karl",
    "zoë@example.org",
    "Søren.Ågård@example.net",
    "山田太郎@example.com",
    "ends with a backslash\\",
    "tab\there@example.net",
    "Acct-Status-Type = Stop",
    "#hash@example.org",
    "ALICE@EXAMPLE.NET",
    "@example.net",
    "two@ats@example.org",
    b"andr\xe9@example.com".decode("utf-8", "surrogateescape"),
]
FIRST_NAMES = (
    "alice bob carol dave erin frank grace heidi ivan judy kim leo mallory nina oscar peggy "
    "quinn rupert sybil trent ursula victor wendy xavier yusuf zelda"
).split()
REALMS = ["example.net", "example.com", "example.org", "campus.example.org"]


@dataclass(frozen=True)
class Device:
    number: int  # over all access servers
    user: str
    mac: bytes
    ipv4: str
    by_mac: bool  # let in by its MAC address, which is its user name then


def make_device(number: int, server: AccessServer) -> Device:
    locally_administered = 0x02 if number > 255 else 0x00
    mac = bytes([locally_administered, 0x00, 0x5E, 0x00, 0x53, number % 256])
    by_mac = server.link == "wired" and number % 10 == 3
    if by_mac:
        user = bare(mac)
    elif number % 8 == 4 and number // 8 < len(AWKWARD_NAMES):
        user = AWKWARD_NAMES[number // 8]
    elif server.link == "wired" and number % 10 == 6:
        user = f"host/pc-{number:03}.example.net"
    else:
        user = FIRST_NAMES[number % len(FIRST_NAMES)]
        if number % 7 != 0:
            user += "@" + REALMS[number % len(REALMS)]
    return Device(number, user, mac, ipv4_address(number), by_mac)


def ipv4_address(number: int) -> str:
    block, host = divmod(number, 250)
    return f"{('198.51.100', '203.0.113')[block]}.{host + 1}"


# ---- What happens to a session ---------------------------------------------------------


@dataclass
class Session:
    server: AccessServer
    device: Device
    n: int  # counts the sessions of this access server since its last restart
    start_s: int  # all times in seconds since MORNING
    stop_s: int = 0  # 0: no stop is sent
    updates_s: list = field(default_factory=list)
    start_lost: bool = False
    live: bool = True  # when the day is over


LOST_STARTS = [(1, 16), (3, 41), (4, 6)]  # access server, n
STOP_AFTER_S = 5400
UPDATE_EVERY_S = 3600
UPDATES = (0, 1, 0, 2, 0)  # how many interim updates a session sends, by n


def plan_sessions() -> list:
    sessions = []
    device_number = 0
    for server in ACCESS_SERVERS:
        devices = [make_device(device_number + i, server) for i in range(server.devices)]
        device_number += server.devices
        if server.restart_s:
            sessions += plan_boot(server, devices, 0, server.restart_s, ends_with_restart=True)
            sessions += plan_boot(server, devices, server.restart_s, DAY_S)
        else:
            sessions += plan_boot(server, devices, 0, DAY_S)
    return sessions


def plan_boot(server, devices, from_s, to_s, ends_with_restart=False) -> list:
    """One session for each device, spread over the time between two restarts."""
    sessions = []
    for n, device in enumerate(devices):
        start_s = from_s + 60 + n * (to_s - from_s - 120) // len(devices) + server.number
        session = Session(server, device, n, start_s, live=not ends_with_restart)
        if n % 8 == 5 and start_s + STOP_AFTER_S < to_s:
            session.stop_s = start_s + STOP_AFTER_S
            session.live = False
        end_s = session.stop_s or to_s
        due = [start_s + UPDATE_EVERY_S * (i + 1) for i in range(UPDATES[n % len(UPDATES)])]
        session.updates_s = [at_s for at_s in due if at_s < end_s]
        session.start_lost = (server.number, n) in LOST_STARTS and bool(session.updates_s)
        sessions.append(session)
    return sessions


# ---- What the access servers say about it ----------------------------------------------


def session_pairs(session: Session, status: str, at_s: int, delay_s: int = 0) -> list:
    server, device, n = session.server, session.device, session.n
    pairs = [("User-Name", device.user), *server.identity.items()]
    pairs += LINK_PAIRS[server.link](session)
    pairs += [
        ("Acct-Status-Type", status),
        ("Acct-Session-Id", server.session_id.format(n + 417, n)),
        *multi_session_id(session),
        ("Acct-Authentic", "Local" if device.by_mac else "RADIUS"),
        ("Event-Timestamp", str(MORNING + at_s)),
        ("Acct-Delay-Time", str(delay_s)),
    ]
    if n % 3 != 2:
        pairs.append(("Class", f"0x{device.number:04x}{n:04x}c1a55e00"))
    pairs += address_pairs(session, at_s)
    if status != "Start":
        pairs += counter_pairs(at_s - session.start_s, device.number)
    if status == "Stop":
        cause = ("User-Request", "Lost-Carrier", "Idle-Timeout")[n % 3]
        pairs.append(("Acct-Terminate-Cause", cause))
    return pairs


def multi_session_id(session: Session) -> list:
    """24 hexadecimal digits from wired and wireless access, absent from the rest."""
    if session.server.link not in ("wired", "wireless"):
        return []
    text = f"{session.server.number:08X}{MORNING + session.start_s:08X}{session.n:08X}"
    return [("Acct-Multi-Session-Id", text)]


def wired_pairs(session: Session) -> list:
    unit, port = divmod(session.n, 48)
    return [
        ("NAS-Port", str(50000 + (unit + 1) * 100 + port + 1)),
        ("NAS-Port-Id", f"Gi{unit + 1}/0/{port + 1}"),
        ("NAS-Port-Type", "Ethernet"),
        ("Service-Type", "Call-Check" if session.device.by_mac else "Framed-User"),
        ("Called-Station-Id", session.server.spell_mac(bytes.fromhex("02005e0053f0"))),
        ("Calling-Station-Id", session.server.spell_mac(session.device.mac)),
    ]


def wireless_pairs(session: Session) -> list:
    network = ("staff", "guest")[session.n % 2]
    pairs = [
        ("NAS-Port", str(session.n % 4 + 1)),
        ("NAS-Port-Type", "Wireless-802.11"),
        ("Service-Type", "Framed-User"),
        ("Called-Station-Id", f"02-00-5E-00-53-F3:example-{network}"),
        ("Calling-Station-Id", session.server.spell_mac(session.device.mac)),
        ("Connect-Info", "CONNECT 802.11ax"),
    ]
    if network == "guest" and session.n % 10 == 1:  # one known vendor, and one in no dictionary
        pairs.append(("WISPr-Location-Name", 'Example.Org,Lobby "B"'))
        pairs.append(("Attr-26.32473.7", f"0x{session.n:08x}"))
    return pairs


def pppoe_pairs(session: Session) -> list:
    pairs = [
        ("NAS-Port", str(16777216 + session.n)),
        ("NAS-Port-Id", f"lag-1:100.{session.n + 417}"),
        ("NAS-Port-Type", "PPPoEoVLAN"),
        ("Service-Type", "Framed-User"),
        ("Framed-Protocol", "PPP"),
        ("Calling-Station-Id", session.server.spell_mac(session.device.mac)),
    ]
    if session.n % 6 == 0:
        pairs.append(("ADSL-Agent-Circuit-Id", f"olt-7.example.net eth 1/1/{session.n}:100"))
    return pairs


def vpn_pairs(session: Session) -> list:
    return [  # the calling station of a tunnel is where it comes from, not a MAC address
        ("NAS-Port", str(session.n + 1)),
        ("NAS-Port-Type", "Virtual"),
        ("Service-Type", "Framed-User"),
        ("Calling-Station-Id", f"203.0.113.{200 + session.n}"),
    ]


LINK_PAIRS = {
    "wired": wired_pairs, "wireless": wireless_pairs, "pppoe": pppoe_pairs, "vpn": vpn_pairs,
}


def address_pairs(session: Session, at_s: int) -> list:
    """The addresses at one moment: an update may bring a new one, more of them, or fewer."""
    number, n = session.device.number, session.n
    updated = at_s > session.start_s
    dual_stack = session.server.link != "wired" or n % 2 == 1
    learned_late = session.server.link == "wired" and n % 3 == 0
    ipv4 = session.device.ipv4
    ipv6 = [f"2001:db8:100:{session.server.number}::{number:x}"] if dual_stack else []
    if updated and n % 4 == 1:
        ipv4 = ipv4_address(290 + number // 2)  # beyond what the devices start with
    if updated and dual_stack and n % 5 == 3:
        ipv6.append(f"2001:db8:100:{session.server.number}:{number:x}:cafe:0:{n + 1:x}")
        ipv6.append(f"2001:db8:100:{session.server.number}:{number:x}:beef:0:{n + 1:x}")
    if updated and n % 6 == 3:
        ipv6 = []
    keeps_ipv4 = not (updated and dual_stack and n % 8 == 6)

    pairs = []
    if keeps_ipv4 and (updated or not learned_late):
        pairs.append(("Framed-IP-Address", ipv4))
    pairs += [("Framed-IPv6-Address", address) for address in ipv6]
    if session.server.link == "pppoe":
        pairs.append(("Framed-IPv6-Prefix", f"2001:db8:200:{number:x}::/64"))
        pairs.append(("Delegated-IPv6-Prefix", f"2001:db8:{0x1000 + number:x}::/56"))
    return pairs


def counter_pairs(elapsed_s: int, number: int) -> list:
    octets_in = elapsed_s * (1000 + 37 * number)
    octets_out = elapsed_s * (9000 + 7919 * number)
    pairs = [
        ("Acct-Session-Time", str(elapsed_s)),
        ("Acct-Input-Octets", str(octets_in % 2**32)),
        ("Acct-Output-Octets", str(octets_out % 2**32)),
        ("Acct-Input-Packets", str(octets_in // 400)),
        ("Acct-Output-Packets", str(octets_out // 1100)),
    ]
    if octets_out >= 2**32:
        pairs.append(("Acct-Output-Gigawords", str(octets_out // 2**32)))
    return pairs


# ---- The day as a list of packets ------------------------------------------------------


def plan_packets(sessions: list) -> list:
    """All packets, each a list of pairs, in the order in which they are sent."""
    timed = []
    for session in sessions:
        timed += session_packets(session)
    for server in ACCESS_SERVERS:
        if server.restart_s:
            timed += restart_packets(server)
    timed += stray_packets()
    return [pairs for _, pairs in sorted(timed, key=lambda packet: packet[0])]


def session_packets(session: Session) -> list:
    def packet(status, at_s, delay_s=0):
        return (at_s + delay_s, session_pairs(session, status, at_s, delay_s))

    # What got no answer is sent again as a new packet, with the delay in it.
    repeats = 2 if session.n == 25 else 1 if session.n % 16 == 9 else 0
    packets = []
    if not session.start_lost:
        packets += [packet("Start", session.start_s, 5 * i) for i in range(repeats + 1)]
    packets += [packet("Interim-Update", at_s) for at_s in session.updates_s]
    if session.stop_s:
        stop_repeats = 1 if session.n == 13 else 0
        packets += [packet("Stop", session.stop_s, 5 * i) for i in range(stop_repeats + 1)]
    return packets


def restart_packets(server: AccessServer) -> list:
    def packet(status, at_s):
        pairs = [*server.identity.items(), ("Acct-Status-Type", status)]
        pairs += [("Acct-Session-Id", "00000000"), ("Event-Timestamp", str(MORNING + at_s))]
        return (at_s, pairs + [("Acct-Delay-Time", "0")])

    packets = [packet("Accounting-On", server.restart_s)]
    if server.says_off:
        packets.insert(0, packet("Accounting-Off", server.restart_s - 30))
    return packets


def stray_packets() -> list:
    """Stops of sessions nobody started, a status of no session, an update without identity."""
    device = make_device(0, ACCESS_SERVERS[0])
    strangers = [Session(ACCESS_SERVERS[i], device, 900 + i, 1000) for i in range(3)]
    without_id = [
        pair for pair in session_pairs(strangers[2], "Interim-Update", 9000)
        if pair[0] != "Acct-Session-Id"
    ]
    return [
        (7000, session_pairs(strangers[0], "Stop", 7000)),
        (8000, session_pairs(strangers[1], "Stop", 8000)),
        (8500, session_pairs(strangers[1], "Failed", 8500)),
        (9000, without_id),
    ]
