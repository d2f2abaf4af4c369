# SPDX-License-Identifier: BSD-3-Clause
"""Finds the places of a C++ source where a mutation may matter, and rewrites the source so that
each mutation is selected at run time.

The sources are read as tokens. The search relies on their format: a binary operator stands between
spaces, a template's bracket does not; every branch has braces. Only function bodies are changed,
and no line is added or removed.
"""
import collections
import dataclasses
import hashlib
import re

TOKEN = re.compile(r"""
    (?P<space>\s+|//[^\n]*|/\*.*?\*/|\\\n)
  | (?P<directive>(?<![^\n])[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<text>(?:u8|[LuU])?"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*')
  | (?P<number>\d(?:'?[\w.])*)
  | (?P<name>[A-Za-z_]\w*)
  | (?P<sign><<=|>>=|<=>|->\*|\.\.\.|::|->|\+\+|--|<<|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)
""", re.VERBOSE | re.DOTALL)

KEYWORDS = {
    "auto", "bool", "break", "case", "catch", "char", "class", "const", "constexpr", "constinit",
    "continue", "default", "delete", "do", "else", "enum", "extern", "false", "for", "friend",
    "goto", "if", "inline", "int", "mutable", "namespace", "new", "nullptr", "operator", "private",
    "protected", "public", "return", "sizeof", "static", "static_assert", "static_cast", "struct",
    "switch", "template", "thread_local", "throw", "true", "try", "typedef", "typename", "union",
    "unsigned", "using", "virtual", "void", "volatile", "while"}
COMPARISONS = {"<": ("Less", "<="), "<=": ("LessEqual", "<"), ">": ("Greater", ">="),
               ">=": ("GreaterEqual", ">"), "==": ("Equal", "!="), "!=": ("Unequal", "==")}
OPEN, CLOSE = {"(": ")", "[": "]", "{": "}"}, {")", "]", "}"}


@dataclasses.dataclass
class Token:
    kind: str
    text: str
    begin: int
    end: int
    spaced: bool = False  # between spaces
    mate: int = -1  # index of the other bracket


@dataclasses.dataclass
class Point:
    """One mutation: what is inserted before and after a stretch of the source."""
    file: str
    line: int
    line_text: str
    kind: str
    original: str
    mutated: str
    begin: int
    end: int
    before: str  # with @ for the number
    after: str = ""
    number: int = 0
    rewritten: tuple = (0, 0)  # the stretch in the rewritten source

    @property
    def change(self):
        return f"{self.original} -> {self.mutated}"

    @property
    def key(self):
        return self.file, self.line_text, self.change

    @property
    def rank(self):
        """Orders the points by chance, but always in the same way."""
        return hashlib.sha1("\n".join(self.key).encode()).hexdigest()

    def __str__(self):
        return f"{self.file}:{self.line}: {self.change}"


def tokens_of(source):
    tokens = []
    for match in TOKEN.finditer(source):
        if match.lastgroup not in ("space", "directive"):
            tokens.append(Token(match.lastgroup, match[0], match.start(), match.end()))
    brackets = []
    for index, token in enumerate(tokens):
        token.spaced = (source[token.begin - 1:token.begin].isspace()
                        and source[token.end:token.end + 1].isspace())
        if token.kind != "sign":
            continue
        if token.text in OPEN:
            brackets.append(index)
        elif token.text in CLOSE and brackets:
            other = brackets.pop()
            token.mate, tokens[other].mate = other, index
    return tokens


class Finder:
    def __init__(self, file, source):
        self.file, self.source = file, source
        self.lines = source.split("\n")
        self.tokens = tokens_of(source)
        self.points = []

    def text(self, index):
        return self.tokens[index].text if 0 <= index < len(self.tokens) else ""

    def find(self):
        index = 0
        while index < len(self.tokens):
            if self.is_block(index) and self.tokens[index].mate > index:
                if not self.is_constant(index):
                    self.in_body(index)
                index = self.tokens[index].mate
            index += 1
        self.points.sort(key=lambda point: (point.begin, -point.end))
        seen = collections.Counter()
        for point in self.points:
            seen[point.key] += 1
            if seen[point.key] > 1:
                point.line_text += f" [{seen[point.key]}]"  # the same text again
        return self.points

    # Recognises the parts of the source.

    def is_block(self, index):
        """True for the brace of a function body or of a statement, false for a class or a list."""
        if self.text(index) != "{":
            return False
        before = self.text(index - 1)
        return before in (")", "]", "else", "try", "do", ";", "{", "}", ":", "noexcept", "override",
                          "mutable") or (before == "const" and self.text(index - 2) == ")")

    def is_constant(self, index):
        """True for the body of a function that may run in the compiler, or that never returns: the
        end of such a body is undefined behaviour."""
        while index > 0:
            index -= 1
            token = self.tokens[index]
            if token.text == ")":
                index = token.mate
            elif token.text in (";", "{", "}") or (token.text == ":" and not token.spaced):
                return False
            elif token.text in ("constexpr", "consteval", "noreturn"):
                return True
        return False

    def is_after_statement(self, index):
        before = self.tokens[index - 1]
        return before.text in ("{", ";", "}") or (
            before.text == ":" and self.source[before.begin - 1] != " ")  # a label

    def end_of_statement(self, index):
        while index < len(self.tokens):
            token = self.tokens[index]
            if token.text == ";":
                return index
            if token.text in CLOSE:
                return None  # an enumeration, or an empty statement
            index = token.mate + 1 if token.text in OPEN and token.mate > 0 else index + 1
        return None

    def is_expression(self, begin):
        """True if the statement calls, assigns or steps, false if it declares."""
        first = self.tokens[begin]
        if first.text in ("++", "--", "*", "(") or first.text == "this":
            return True
        if first.text == "::":
            begin += 1
            first = self.tokens[begin]
        if first.kind != "name" or first.text in KEYWORDS:
            return False
        index = begin + 1
        while self.text(index) == "::":
            index += 2
        if self.text(index) == "<" and not self.tokens[index].spaced:
            while self.text(index) not in (">", ";"):
                index += 1
            index += 1
            while self.text(index) == "::":
                index += 2
        token = self.tokens[index]
        if token.kind == "name" or (token.text in ("&", "*", "&&") and not token.spaced):
            return False
        return token.text in ("(", ".", "->", "[", "=", "<<", ">>", "&", "++", "--") or (
            token.text.endswith("=") and token.text not in COMPARISONS)

    def expression_around(self, index, stops):
        """The stretch of the operand that an operator at `index` ends or begins, by the signs that
        bind less."""
        left = index - 1
        while left >= 0:
            token = self.tokens[left]
            if token.text in CLOSE and token.mate >= 0:
                left = token.mate - 1
                continue
            if token.text in stops or token.text in OPEN:
                break
            left -= 1
        right = index + 1
        while right < len(self.tokens):
            token = self.tokens[right]
            if token.text in OPEN and token.mate >= 0:
                right = token.mate + 1
                continue
            if token.text in stops or token.text in CLOSE:
                break
            right += 1
        return left, right  # the tokens outside

    # Collects the points.

    def add(self, kind, first, last, mutated, before, after="", original=None):
        begin, end = self.tokens[first].begin, self.tokens[last].end
        if original is None:
            original = " ".join(self.source[begin:end].split())
        line = self.source.count("\n", 0, begin) + 1
        self.points.append(Point(self.file, line, " ".join(self.lines[line - 1].split()), kind,
                                 shortened(original), shortened(mutated.replace("@", original)),
                                 begin, end, before, after))

    def in_body(self, opening):
        """Visits the tokens of a function body. `blocks` has the braces around the current one."""
        blocks = [opening]
        for index in range(opening + 1, self.tokens[opening].mate):
            token = self.tokens[index]
            while self.tokens[blocks[-1]].mate < index:
                blocks.pop()
            if token.text in OPEN and token.mate > index:
                blocks.append(index)
                continue
            around = blocks[-1]
            if self.is_block(around) and self.is_after_statement(index):
                self.at_statement(index)
            if token.kind == "name":
                self.at_name(index)
            elif token.kind == "number":
                self.at_number(index)
            elif token.kind == "sign" and token.spaced:
                self.at_operator(index)

    def at_statement(self, index):
        word = self.text(index)
        end = self.end_of_statement(index)
        if end is None:
            return
        if word in ("break", "continue", "throw") or (word == "return" and end == index + 1):
            self.add("jump", index, end, "nothing", "if (!::Mutation::Is(@)) ")
        elif word == "return":
            self.at_return(index, end)
        elif word not in ("return", "if", "for", "while", "switch", "try", "do", "}"):
            if self.is_expression(index) and not self.only_saves_time(index):
                assigns = any(self.text(place) == "=" for place in (index + 1, index + 3))
                self.add("assignment" if assigns else "call", index, end, "nothing",
                         "if (!::Mutation::Is(@)) ")

    def only_saves_time(self, index):
        """True in a call of reserve()."""
        while self.text(index) not in (";", "{", "}", ""):
            if self.text(index) == "reserve":
                return True
            index += 1
        return False

    def at_return(self, index, end):
        first = self.tokens[index + 1]
        plain = end == index + 2 and first.kind == "name" and not first.text.startswith("m_")
        constant = first.text in ("true", "false")
        if constant or plain or first.text == "{" or first.kind == "text":
            return  # a local variable is moved out, which a call would prevent
        if self.text(end - 1) == ")" and self.tokens[end - 1].mate == end - 2:
            if first.text[0].isupper() and re.fullmatch(r"SuccessResult|Operation", first.text):
                return  # the value that would replace it
        self.add("return", index + 1, end - 1, "another value",
                 "::Mutation::Returned(@, ", ")")

    def at_name(self, index):
        word = self.text(index)
        bracket = index + 1
        if word in ("if", "while") and self.text(bracket) == "(":
            self.at_condition(word, bracket)
        elif word == "for" and self.text(bracket) == "(":
            self.at_loop(bracket)
        elif word == "catch":
            block = self.tokens[bracket].mate + 1
            if self.text(block + 1) == "throw" and self.text(block + 2) == ";":
                return
            self.add_at_block("catch", index, block, "rethrown", "throw")
        elif word in ("true", "false"):
            simple = self.text(index - 1) == "=" and self.text(index + 1) == ";"
            declared = simple and self.tokens[index - 3].kind == "name"
            if not self.is_in_constant(index) and (not simple or declared):
                self.add("constant", index, index, "false" if word == "true" else "true",
                         "(::Mutation::Is(@) != ", ")")

    def add_at_block(self, kind, first, block, mutated, jump):
        if self.text(block) != "{":
            return
        self.add(kind, first, block - 1, mutated, "")
        point = self.points[-1]
        point.begin = point.end = self.tokens[block].end
        point.before = f" if (::Mutation::Is(@)) {{ {jump}; }}"

    def at_condition(self, word, bracket):
        first, last = bracket + 1, self.tokens[bracket].mate - 1
        inside = [self.text(index) for index in range(first, last + 1)]
        if self.is_declaration(first, last) or ";" in inside:
            return
        if word == "if":
            self.add("condition", first, last, "!(@)", "::Mutation::Is(@) != static_cast<bool>(",
                     ")")
        else:
            self.add("loop", first, last, "false", "!::Mutation::Is(@) && (", ")")

    def is_declaration(self, first, last):
        index = first
        while index <= last:
            token = self.tokens[index]
            if token.text == "=":
                return True
            index = token.mate + 1 if token.text in OPEN else index + 1
        return False

    def at_loop(self, bracket):
        close = self.tokens[bracket].mate
        signs = []
        index = bracket + 1
        while index < close:
            token = self.tokens[index]
            if token.text in (";", ":"):
                signs.append(index)
            index = token.mate + 1 if token.text in OPEN else index + 1
        if len(signs) == 2 and signs[1] > signs[0] + 1:
            self.add("loop", signs[0] + 1, signs[1] - 1, "false", "!::Mutation::Is(@) && (", ")")
        elif len(signs) == 1:
            self.add_at_block("loop", bracket - 1, close + 1, "no turn", "break")

    def begin_of_statement(self, index):
        while self.text(index - 1) not in (";", "{", "}", ""):
            index -= 1
        return index

    def is_in_constant(self, index):
        """True in the initialiser of a constant, or in an assertion of the compiler."""
        begin = self.begin_of_statement(index)
        return any(self.text(place) in ("constexpr", "static_assert", "constinit")
                   for place in range(begin, index))

    def at_number(self, index):
        before, after = self.text(index - 1), self.text(index + 1)
        number = self.text(index)
        if before not in ("(", ",", "=", "return", "+", "-", "?", ":") or not number.isdigit():
            return
        if after not in (")", ",", ";", "+", "-", ":", "?") or self.is_in_constant(index):
            return
        if before == "=" and after == ";" and self.is_overwritten(index - 2):
            return
        other = str(int(number) + 1)
        self.add("constant", index, index, other, f"(::Mutation::Is(@) ? {other} : ", ")")

    def is_overwritten(self, variable):
        """True if a variable is next used as the target of a call or of an extraction."""
        for index in range(variable + 3, min(variable + 60, len(self.tokens))):
            if self.text(index) == self.text(variable):
                return self.text(index - 1) in ("&", ">>")
        return False

    def at_operator(self, index):
        sign = self.text(index)
        if self.is_in_constant(index):
            return
        if sign in COMPARISONS:
            name, mutated = COMPARISONS[sign]
            if (not self.is_alone(index)) if sign in ("==", "!=") else self.is_order(index):
                return
            self.replace(index, name, mutated)
        elif sign in ("&&", "||"):
            self.at_logical(index)
        elif sign == "?":
            self.at_choice(index)
        elif sign == "|":
            self.replace(index, "Or", None)
        elif sign in ("+", "-"):
            sides = (self.tokens[index - 1], self.tokens[index + 1])
            if all(side.kind in ("number", "name") or side.text in (")", "(") for side in sides):
                if self.only_saves_time(self.begin_of_statement(index)):
                    return
                self.replace(index, "Plus" if sign == "+" else "Minus", "-" if sign == "+" else "+")

    def replace(self, index, name, mutated):
        stops = {"&&", "||", "?", ":", ";", ",", "=", "return", "<<", "|"}
        left, right = self.expression_around(index, stops)
        if sign_is_of_texts(self.text(index), self.tokens[left + 1:right]):
            return
        begin, end = self.tokens[left + 1].begin, self.tokens[right - 1].end
        token = self.tokens[index]
        original = self.source[begin:end]
        rest = (original[:token.begin - begin] + mutated + original[token.end - begin:]
                if mutated else original[:token.begin - begin])
        self.add("operator", index, index, " ".join(rest.split()), "",
                 original=" ".join(original.split()))
        point = self.points[-1]
        point.begin = point.end = token.end
        point.before = f" ::Mutation::{name}(@) {token.text}"

    def is_alone(self, index):
        """True for a comparison that is no condition, operand or returned value by itself: these
        are negated anyway."""
        left, right = self.expression_around(index, {"&&", "||", "?", ":", ";", ",", "=", "return"})
        if self.text(left) in ("&&", "||", "return") or self.text(right) in ("&&", "||", "?"):
            return False
        return not (self.text(left) == "(" and self.text(left - 1) in ("if", "while"))

    def is_order(self, index):
        """True for a comparison of `left` with `right`, for sorting: it must be strict."""
        left, right = self.expression_around(index, {"&&", "||", ";", ",", "return"})
        names = [self.text(place) for place in range(left + 1, right)]
        middle = index - left - 1
        return [name.replace("left", "right") for name in names[:middle]] == names[middle + 1:]

    def at_logical(self, index):
        stops = {"&&", "||", "?", ":", ";", ",", "=", "return"}
        left, right = self.expression_around(index, stops)
        neutral = ("::Mutation::Is(@) || (" if self.text(index) == "&&"
                   else "!::Mutation::Is(@) && (")
        if self.text(left) not in ("&&", "||"):
            self.add_operand(left + 1, index - 1, index, neutral)
        self.add_operand(index + 1, right - 1, index, neutral)

    def add_operand(self, first, last, index, neutral):
        rest = "true" if self.text(index) == "&&" else "false"
        self.add("operand", first, last, rest, "(" + neutral, "))")

    def at_choice(self, index):
        left, _ = self.expression_around(index, {"?", ":", ";", ",", "=", "return", "<<"})
        self.add("condition", left + 1, index - 1, "!(@)",
                 "(::Mutation::Is(@) != static_cast<bool>(", "))")


def sign_is_of_texts(sign, tokens):
    return sign == "+" and any(token.kind == "text" for token in tokens)


def shortened(text, length=120):
    return text if len(text) <= length else text[:length - 3] + "..."


def find(file, source):
    return Finder(file, source).find()


def rewrite(source, points):
    """The source with all mutations, each inactive until it is selected."""
    insertions = []
    for order, point in enumerate(points):
        before = point.before.replace("@", str(point.number))
        # At one place, what ends comes before what begins; inner ends before outer ones, and the
        # other way round.
        insertions.append((point.begin, 1, -point.end, order, before, point, 0))
        if point.after or point.end > point.begin:
            insertions.append((point.end, 0, -point.begin, -order, point.after, point, 1))
    insertions.sort(key=lambda insertion: insertion[:4])
    parts, position, length = [], 0, 0
    for place, _, _, _, text, point, is_end in insertions:
        parts += [source[position:place], text]
        begin = length + place - position
        length, position = begin + len(text), place
        if is_end:
            point.rewritten = (point.rewritten[0], length)
        else:
            point.rewritten = (begin, length)
    parts.append(source[position:])
    return "".join(parts)
