"""What is told of a rendering while it goes on."""

import sys


class _Line:
    """A line on standard error that is drawn anew, where there is no tqdm."""

    def __init__(self):
        self._told = -1

    def update_to(self, done):
        percent = int(100 * done)
        if percent > self._told:
            self._told = percent
            print(f"\rrendering {percent:3d}%", end="", file=sys.stderr, flush=True)

    def close(self):
        print(file=sys.stderr)


class _Bar:
    """A bar of tqdm's."""

    def __init__(self, tqdm):
        self._bar = tqdm(total=100, desc="rendering", unit="%", bar_format="{l_bar}{bar}| {elapsed}<{remaining}")

    def update_to(self, done):
        self._bar.update(int(100 * done) - self._bar.n)

    def close(self):
        self._bar.close()


class _Call:
    """A function of the caller's."""

    def __init__(self, function):
        self.update_to = function

    def close(self):
        pass


def _usual():
    try:
        from tqdm.auto import tqdm
    except ImportError:
        return _Line()
    return _Bar(tqdm)


class Progress:
    """For `with`: gives a function that is called with the share that is done, or None."""

    def __init__(self, wanted):
        if wanted is not None and not isinstance(wanted, bool) and not callable(wanted):
            raise TypeError(f"progress: expected True, False, tqdm or a function, not {wanted!r}")
        self._wanted = wanted
        self._teller = None

    def __enter__(self):
        if self._wanted is None or self._wanted is False:
            return None
        if self._wanted is True:
            self._teller = _usual()
        elif isinstance(self._wanted, type) and hasattr(self._wanted, "update"):
            self._teller = _Bar(self._wanted)
        else:
            self._teller = _Call(self._wanted)
        return self._teller.update_to

    def __exit__(self, *_):
        if self._teller:
            self._teller.close()
