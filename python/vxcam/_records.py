"""What a camera tells of itself."""

from __future__ import annotations

from typing import Any, NamedTuple


class Statistics(NamedTuple):
    """What a camera has done since it was opened. Figures only grow."""

    bytes_received: int = 0
    bytes_sent: int = 0
    messages_received: int = 0
    messages_bad: int = 0
    messages_sent: int = 0
    bytes_skipped: int = 0
    connections_lost: int = 0
    reconnects: int = 0
    heartbeats: int = 0
    camera_errors: int = 0
    requests_sent: int = 0
    requests_answered: int = 0
    requests_timed_out: int = 0
    frames_complete: int = 0
    frames_incomplete: int = 0
    frames_failed: int = 0
    frames_aborted: int = 0
    packets_received: int = 0
    packets_missing: int = 0
    packets_duplicate: int = 0


class Identity(NamedTuple):
    """Who a camera says it is; empty, and 0 bits a pixel, for what it does not tell."""

    name: str
    serial: str
    version: str
    bits: int


class Setting(NamedTuple):
    """A property with its value; `trouble` says why the camera did not tell it, and is mostly empty."""

    name: str
    value: Any
    text: str
    trouble: str


class Outcome(NamedTuple):
    """What became of a setting of a profile; `how` is "confirmed", "sent", "different", "refused" or
    "unanswered"."""

    name: str
    how: str
    asked: Any
    told: Any
    why: str
    restored: bool


class LinkCheck(NamedTuple):
    """What became of messages of random bytes that the camera sent back."""

    messages: int
    damaged: int
    megabytes_per_second: float
