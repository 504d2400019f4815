"""The controller's variables over version 2 of its web API."""

from .client import Controller, Refusal, Refused
from .variables import Changes, SomeValues, Values, element  # pylint: disable=import-error; the build generates it

__all__ = ["Changes", "Controller", "Refusal", "Refused", "SomeValues", "Values", "element"]
