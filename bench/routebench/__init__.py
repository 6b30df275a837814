"""The parts of bench/routes."""
