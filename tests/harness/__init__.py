"""Harness of the black-box tests: see tests/README.md."""

from harness.case import SystemCase, main
from harness.snmp import SnmpError
from harness.tools import PATIENCE, background, eventually

__all__ = ["PATIENCE", "SnmpError", "SystemCase", "background", "eventually", "main"]
