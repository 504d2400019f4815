"""The controller's variables over version 2 of its web API."""

from .client import Changed, Controller, Reading, Refusal, Refused, Version
from .variables import Changes, SomeValues, Values, element  # pylint: disable=import-error; the build generates it

__all__ = ["Changed", "Changes", "Controller", "Reading", "Refusal", "Refused", "SomeValues", "Values", "Version", "element"]
