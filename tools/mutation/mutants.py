"""The mutants of a source file: one change at one place each."""
import collections
import re

TOKEN = re.compile(r"""
    (?P<directive>^[ \t]*\#[^\n]*)
  | (?P<space>\s+)
  | (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<string>"(?:\\.|[^"\\\n])*")
  | (?P<char>'(?:\\.|[^'\\\n])')
  | (?P<fraction>[0-9]+(?:\.[0-9]*(?:[eE][-+]?[0-9]+)?|[eE][-+]?[0-9]+))
  | (?P<number>0[xX][0-9a-fA-F]+[uUlL]*|[0-9]+[uUlL]*)
  | (?P<word>[A-Za-z_][A-Za-z_0-9]*)
  | (?P<symbol>->|\+\+|--|<<=|>>=|<<|>>|<=|>=|==|!=|&&|\|\||::|[-+*/%&|^]=|.)
""", re.X | re.S | re.M)

COMPARISONS = {
    "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "==": ["!=", ">=", "<="], "!=": ["==", "<", ">"],
}
NOT_STATEMENTS = {"if", "for", "while", "switch", "case", "default", "return", "break", "continue",
                  "else", "do", "static_assert", "using", "template", "struct", "enum", "namespace",
                  "class", "typedef", "public", "private", "constexpr", "extern", "static"}
DECLARES = {"struct", "class", "union", "enum", "namespace", "extern"}
WIDTHS = {"uint8_t", "uint16_t", "uint32_t", "int32_t"}

Token = collections.namedtuple("Token", "kind text start end")
Mutant = collections.namedtuple("Mutant", "file line operator old new text")


def tokens_of(text):
    """Tokens without blanks and comments; the body of a macro counts, other directives do not."""
    found, position = [], 0
    while position < len(text):
        match = TOKEN.match(text, position)
        position = match.end()
        if match.lastgroup == "directive":
            head = re.match(r"[ \t]*#[ \t]*define[ \t]+\w+(\([^)]*\))?", match.group())
            if head:
                position = match.start() + head.end()
            else:
                while text[position - 1] == "\\":
                    position = text.index("\n", position + 1)
        elif match.lastgroup not in ("comment", "space"):
            found.append(Token(match.lastgroup, match.group(), match.start(), match.end()))
    return found


def skip_asserts(tokens):
    kept, skipping = [], False
    for token in tokens:
        skipping = skipping or token.text == "static_assert"
        if not skipping:
            kept.append(token)
        skipping = skipping and token.text != ";"
    return kept


def spaced(text, token):
    """A binary operator has blanks around it, brackets and references do not."""
    return text[token.start - 1].isspace() and text[token.end].isspace()


def closing(tokens, opening):
    depth = 0
    for i in range(opening, len(tokens)):
        depth += {"(": 1, "[": 1, "{": 1, ")": -1, "]": -1, "}": -1}.get(tokens[i].text, 0)
        if depth == 0:
            return i
    raise ValueError("unbalanced brackets")


def comparisons(text, tokens):
    for i, token in enumerate(tokens):
        if token.text in COMPARISONS and spaced(text, token):
            against_none = tokens[i + 1].text in ("0", "0u", "nullptr")
            for other in COMPARISONS[token.text][:1 if against_none and token.text in ("==", "!=")
                                                 else None]:
                yield "comparison", [(token.start, token.end, other)]


def constants(_, tokens):
    for token in tokens:
        if token.kind == "number":
            digits = token.text.rstrip("uUlL")
            suffix = token.text[len(digits):]
            value = int(digits, 8 if re.fullmatch("0[0-7]+", digits) else 0)
            for other in [value + 1] + ([value - 1] if value else []):
                shown = f"0x{other:X}" if digits.lower().startswith("0x") else str(other)
                yield "constant", [(token.start, token.end, shown + suffix)]
        elif token.kind == "fraction":
            for other in (float(token.text) + 1, float(token.text) - 1):
                yield "constant", [(token.start, token.end, str(other))]
        elif token.kind == "char" and len(token.text) == 3:
            yield "constant", [(token.start, token.end, f"'{chr(ord(token.text[1]) + 1)}'")]
        elif token.text in ("true", "false"):
            yield "constant", [(token.start, token.end, "false" if token.text == "true" else "true")]


def logic(text, tokens):
    for token in tokens:
        if token.text in ("&&", "||") and spaced(text, token):
            yield "logic", [(token.start, token.end, "||" if token.text == "&&" else "&&")]
        elif token.text == "!":
            yield "logic", [(token.start, token.end, "")]


def cuts(text, tokens):
    for i, token in enumerate(tokens):
        if token.text == "static_cast" and tokens[i + 2].text in WIDTHS and tokens[i + 3].text == ">":
            edits = [(token.start, tokens[i + 3].end, "")]
            # A variable of the width would cut just the same.
            if tokens[i - 1].text == "=" and tokens[i - 3].text == tokens[i + 2].text:
                edits.insert(0, (tokens[i - 3].start, tokens[i - 3].end, "auto"))
            yield "cut", edits
        elif token.text == "&" and spaced(text, token) and tokens[i + 1].kind in ("number", "word"):
            yield "cut", [(token.start, tokens[i + 1].end, "")]


def declarative(tokens):
    """For each token, whether it stands where only declarations do: in no function."""
    found, scopes, head = [], [True], []
    for token in tokens:
        found.append(scopes[-1])
        if token.text == "{":
            scopes.append(bool(head) and head[-1] != ")" and not DECLARES.isdisjoint(head))
        elif token.text == "}" and len(scopes) > 1:
            scopes.pop()
        head = [] if token.text in ("{", "}", ";") else head + [token.text]
    return found


def call_statements(tokens):
    """Blocks of neighbouring simple statements that call something."""
    declared = declarative(tokens)
    block, i, fresh = [], 0, True
    while i < len(tokens):
        text = tokens[i].text
        if text in ("{", "}", ";") or (fresh and tokens[i].text == ":"):
            if text != ";":
                yield block
                block = []
            i, fresh = i + 1, True
            continue
        if not fresh or tokens[i].kind != "word":
            i, fresh = i + 1, False
            continue
        end = i
        while end < len(tokens) and tokens[end].text not in (";", "{", "}"):
            end = closing(tokens, end) + 1 if tokens[end].text in "([" else end + 1
        simple = (end < len(tokens) and tokens[end].text == ";" and text not in NOT_STATEMENTS and
                  not declared[i] and any(t.text == "(" for t in tokens[i:end]))
        if simple:
            block.append(tokens[i:end + 1])
        else:
            yield block
            block = []
        if end < len(tokens) and tokens[end].text == ";":
            i, fresh = end + 1, True
        else:
            i, fresh = end, True
    yield block


def is_call(statement):
    """A call and nothing else: not a declaration, not an assignment."""
    opening = next(i for i, t in enumerate(statement) if t.text == "(")
    heads = [t.text for t in statement[:opening]]
    return (closing(statement, opening) == len(statement) - 2 and
            all(text in (".", "->", "::", "[", "]") or re.match(r"\w+$", text) for text in heads) and
            not any(a.kind == "word" and b.kind == "word"
                    for a, b in zip(statement, statement[1:opening])))


def calls(text, tokens):
    for block in call_statements(tokens):
        for i, statement in enumerate(block):
            start, end = statement[0].start, statement[-1].end
            if is_call(statement):
                lines = text.count("\n", start, end)
                yield "dropped call", [(start, end, ";" + "\n" * lines)]
            if i + 1 < len(block):
                other = block[i + 1]
                second = (other[0].start, other[-1].end)
                yield "swapped calls", [(start, end, text[slice(*second)]),
                                        (*second, text[start:end])]


def shown(text, edits):
    """The lines that the edits touch, in one line each way."""
    start = text.rfind("\n", 0, edits[0][0]) + 1
    end = text.find("\n", edits[-1][1])
    old, new, position = text[start:end], "", start
    for first, last, replacement in edits:
        new += text[position:first] + replacement
        position = last
    new += text[position:end]
    return " ".join(old.split()), " ".join(new.split()), text[:start] + new + text[end:]


def mutants_of(root, file):
    """All of a file, in a fixed order."""
    text = (root / file).read_text()
    tokens = skip_asserts(tokens_of(text))
    for rule in (comparisons, constants, logic, cuts, calls):
        for operator, edits in rule(text, tokens):
            old, new, changed = shown(text, edits)
            yield Mutant(file, text.count("\n", 0, edits[0][0]) + 1, operator, old, new, changed)
