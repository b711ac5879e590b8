"""What the program has recorded (Record.h says how), and the ratios that can be told from it."""
import collections
import random
import statistics

UNIT = "unit"
UNIT_TEXT = "unit, text"
COMPONENT = "component"
# In the order of the columns. The first word or so names the client in the records.
CLIENTS = {
    "WinINet": "WinINet called by hand on the host's thread",
    UNIT: "the same calls on a thread for each exchange, from and to bytes",
    UNIT_TEXT: "the unit with the form converted from UTF-16 and the answer to it",
    COMPONENT: "the component, polled without pause",
    "component 1 ms": "polled every millisecond",
    "component 15 ms": "polled every 15 milliseconds",
    "component, traced": "polled without pause, with a trace library that does nothing",
    "XMLHTTP": "`MSXML2.XMLHTTP.6.0`",
    "ServerXMLHTTP": "`MSXML2.ServerXMLHTTP.6.0`",
    "WinHttpRequest": "`WinHttp.WinHttpRequest.5.1`",
}
# A ratio that its own rounds do not tell more exactly than this means nothing.
WIDEST = 0.10
RESAMPLES = 300

Ratio = collections.namedtuple("Ratio", "value low high")


class Results:
    """By work and client."""

    def __init__(self, lines):
        self.works = []
        self.times = collections.defaultdict(lambda: collections.defaultdict(list))  # of each round
        self.processor = collections.defaultdict(dict)  # of each round, for one sample
        self.memory, self.left, self.none = {}, {}, {}
        self.figures = collections.defaultdict(list)
        self.ratios = {}
        self.lost = 0
        for line in lines:
            self.take(*line.rstrip("\n").split("\t"))

    def take(self, kind, name, *fields):
        if kind == "figure":
            self.figures[name].append(float(fields[0]))
            return
        if kind == "lost":
            self.lost += 1
            return
        client, *values = fields
        if name not in self.works:
            self.works.append(name)
        key = (name, client)
        if kind == "sample":
            self.times[key][values[0]].append(float(values[1]))
        elif kind == "turn":
            self.processor[key][values[0]] = float(values[1]) / float(values[2])
        elif kind == "memory":
            self.memory[key] = float(values[0])
        elif kind == "left":
            self.left[key] = tuple(int(float(value)) for value in values)
        elif kind == "none":
            self.none[key] = values[0]

    def has(self, work, client):
        return (work, client) in self.times and (work, client) not in self.none

    def all_times(self, work, client):
        return [time for times in self.times[work, client].values() for time in times]

    def median(self, work, client):
        return statistics.median(self.all_times(work, client))

    def processor_time(self, work, client):
        return middle(self.processor[work, client].values())

    def time_ratio(self, work, client, base=UNIT):
        """Of the middle times. None where a client is missing; without a value where it means nothing."""
        return self.ratio("time", self.times, middle_of_all, work, client, base)

    def processor_ratio(self, work, client):
        return self.ratio("processor", self.processor, middle, work, client, UNIT)

    def ratio(self, what, table, statistic, work, client, base):
        if not self.has(work, client) or not self.has(work, base):
            return None
        key = (what, work, client, base)
        if key not in self.ratios:
            rounds = [(table[work, client][number], mine) for number, mine in table[work, base].items()
                      if number in table[work, client]]
            self.ratios[key] = ratio_of(rounds, statistic)
        return self.ratios[key]


def middle(times):
    """The mean of the middle half: where the times lie around two values, a median jumps from one to the other; and a
    client that polls without pause uses up a processor for as long as an exchange happens to hang."""
    ordered = sorted(times)
    quarter = len(ordered) // 4
    return statistics.fmean(ordered[quarter:len(ordered) - quarter])


def middle_of_all(rounds):
    return middle(time for times in rounds for time in times)


def ratio_of(rounds, statistic):
    """The ratio of a statistic of pairs, each of one round, with the interval that holds 95 of 100 ratios of rounds
    drawn anew from them. The value is None where the interval is too wide, or there is none."""
    def divide(pairs):
        below = statistic([unit for _, unit in pairs])
        return statistic([client for client, _ in pairs]) / below if below > 0 else float("inf")

    chance = random.Random(len(rounds))
    drawn = sorted(divide(chance.choices(rounds, k=len(rounds))) for _ in range(RESAMPLES))
    low, high = drawn[int(RESAMPLES * 0.025)], drawn[int(RESAMPLES * 0.975)]
    value = divide(rounds)
    means_something = len(rounds) > 1 and high != float("inf") and (high - low) / 2 <= WIDEST * value
    return Ratio(value if means_something else None, low, high)


def percentile(values, percent):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, len(ordered) * percent // 100)]
