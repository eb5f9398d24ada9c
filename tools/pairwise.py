"""Pairwise covers: few cases in which any two values of any two settings meet.

The cases are to come from a list of alternatives. An alternative is a dict of settings with the
values that each may take; all have the same settings in the same order. What one value forbids of
another setting is said by alternatives: a pair of values is wanted when some alternative has both,
and a case belongs to an alternative.

The method is a greedy one (after D. M. Cohen et al., IEEE Trans. Software Eng. 23(7), 1997): a case begins with the wanted pair that can go into the fewest
alternatives, is filled up with the values that meet most of what is still wanted, in several random
orders of the settings, and the best of these cases stays. Of several covers the shortest is taken;
over all words it is a tenth above the product of the two largest settings that go together."""
import itertools
import random


def wanted_pairs(alternatives):
    """All pairs ((setting, value), (setting, value)) that a case can hold."""
    return {((a, x), (b, y)) for settings in alternatives
            for a, b in itertools.combinations(settings, 2)
            for x in settings[a] for y in settings[b]}


def check_cover(alternatives, cases):
    """The number of wanted pairs; fails where a case belongs to no alternative or a pair is missing."""
    wanted = wanted_pairs(alternatives)
    for case in cases:
        assert any(all(case[name] in values for name, values in settings.items())
                   for settings in alternatives), f"a case of no alternative: {case}"
    met = {pair for case in cases for pair in itertools.combinations(case.items(), 2)}
    assert wanted == met, f"{len(wanted - met)} pairs are in no case: {min(wanted - met)}"
    return len(wanted)


def cover(alternatives, seed, covers=4, tries=12):
    """Cases, each a dict of the value of each setting, that hold every wanted pair."""
    draw = random.Random(seed)
    names = list(alternatives[0])
    numbers = {}  # of (place of the setting, value)
    for settings in alternatives:
        for place, name in enumerate(names):
            for value in settings[name]:
                numbers.setdefault((place, value), len(numbers))
    choices = [[[numbers[place, value] for value in settings[name]]
                for place, name in enumerate(names)] for settings in alternatives]
    place_of = {number: place for (place, _), number in numbers.items()}
    held = [sum(1 << number for column in choice for number in column) for choice in choices]
    partners = [0] * len(numbers)  # bit sets
    for choice in choices:
        columns = [sum(1 << number for number in column) for column in choice]
        for place, column in enumerate(choice):
            for number in column:
                for other, bits in enumerate(columns):
                    if other != place:
                        partners[number] |= bits
    possible = {}  # alternatives of a pair
    for u, bits in enumerate(partners):
        for v in range(u):
            if bits >> v & 1:
                both = 1 << u | 1 << v
                possible[v, u] = [k for k, has in enumerate(held) if has & both == both]
    order = sorted(possible, key=lambda pair: (len(possible[pair]), pair))

    def one_cover():
        left = list(partners)
        cases = []
        for pair in order:
            u, v = pair
            if not left[u] >> v & 1:
                continue
            best, most = None, -1
            for _ in range(tries):
                choice = choices[draw.choice(possible[pair])]
                case = {place_of[u]: u, place_of[v]: v}
                bits, found = 1 << u | 1 << v, 1
                free = [place for place in range(len(names)) if place not in case]
                draw.shuffle(free)
                for place in free:
                    column = choice[place]
                    start = draw.randrange(len(column))
                    top, chosen = -1, None
                    for number in column[start:] + column[:start]:
                        gain = (left[number] & bits).bit_count()
                        if gain > top:
                            top, chosen = gain, number
                    case[place] = chosen
                    bits |= 1 << chosen
                    found += top
                if found > most:
                    best, most = bits, found
            cases.append(best)
            for number in range(len(numbers)):
                if best >> number & 1:
                    left[number] &= ~best
        return cases

    shortest = min((one_cover() for _ in range(covers)), key=len)
    in_order = sorted((place, number, value) for (place, value), number in numbers.items())
    return [{names[place]: value for place, number, value in in_order if bits >> number & 1}
            for bits in shortest]
