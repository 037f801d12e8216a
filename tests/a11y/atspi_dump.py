# What a screen reader reads of a subtree, as indented text: role, name,
# the states that matter to a listener, the text of text objects and their
# links.
import pyatspi

# States worth saying; the others (sensitive, enabled, opaque...) follow
# from these or mean nothing to a listener.
STATES = [
    (pyatspi.STATE_SHOWING, "showing"),
    (pyatspi.STATE_FOCUSABLE, "focusable"),
    (pyatspi.STATE_CHECKED, "checked"),
    (pyatspi.STATE_PRESSED, "pressed"),
]

# Roles that only hold others: an empty name on them says nothing missing.
CONTAINERS = {
    pyatspi.ROLE_FILLER, pyatspi.ROLE_PANEL, pyatspi.ROLE_SCROLL_PANE, pyatspi.ROLE_VIEWPORT,
    pyatspi.ROLE_FRAME, pyatspi.ROLE_WINDOW, pyatspi.ROLE_PAGE_TAB_LIST,
}
# Said by their role and value, never by a name.
SELF_DESCRIBING = {pyatspi.ROLE_SCROLL_BAR}


def text_of(node):
    try:
        text = node.queryText()
    except NotImplementedError:
        return None
    return text.getText(0, text.characterCount)


def describe(node):
    states = node.getState()
    words = [word for state, word in STATES if states.contains(state)]
    if not states.contains(pyatspi.STATE_ENABLED):
        words.append("disabled")
    line = "%s %r" % (node.getRoleName(), node.name)
    if words:
        line += " [" + " ".join(words) + "]"
    return line


def dump(node, depth=0, out=None):
    out = [] if out is None else out
    indent = "  " * depth
    out.append(indent + describe(node))
    text = text_of(node)
    if text and text != node.name and node.getRole() != pyatspi.ROLE_PUSH_BUTTON:
        # Its first line: the rest is wording that changes with the texts.
        lines = text.split("\n")
        out.append(indent + "  | " + lines[0] + (" …" if len(lines) > 1 else ""))
    for child in node:
        if child is not None:
            dump(child, depth + 1, out)
    return out


def walk(node):
    yield node
    for child in node:
        if child is not None:
            yield from walk(child)


def unnamed_controls(node, showing_only=False):
    """The objects a screen reader would announce without a word: not mere
    containers, no name and no text of their own; with `showing_only`,
    those it meets on the screen (a hidden one is not read)."""
    found = []
    for each in walk(node):
        if each.name or text_of(each) or each.getRole() in SELF_DESCRIBING:
            continue
        if showing_only and not each.getState().contains(pyatspi.STATE_SHOWING):
            continue
        # A container says nothing itself; one without anything inside is
        # a control drawn on its own (an icon, say) that has no words.
        if each.getRole() in CONTAINERS and each.childCount > 0:
            continue
        found.append(describe(each))
    return found


def symbol_names(node):
    """The objects named only by a sign ("•", "›", "×"): a screen reader
    reads the sign, not what it means."""
    return [describe(each) for each in walk(node)
            if each.name and not any(c.isalnum() for c in each.name)]


def find(node, predicate):
    for each in walk(node):
        if predicate(each):
            return each
    return None


# The status tab's four group views, each named by its group and status
# ("Drives: Warning").
GROUPS = ("Hardware", "System", "Drives", "Files")


def status_groups(node):
    """The group views under `node`, found by their names, in reading order."""
    found = {}
    for each in walk(node):
        if each.getRole() == pyatspi.ROLE_PUSH_BUTTON and ": " in each.name:
            group = each.name.split(": ")[0]
            if group in GROUPS and group not in found:
                found[group] = each
    return [found[group] for group in GROUPS if group in found]


def status_tab(app):
    """The status tab: the parent of the panel that holds the four group
    views, found by their names; None until all four are there."""
    groups = status_groups(app)
    if len(groups) != len(GROUPS):
        return None
    panel = groups[0].parent
    if panel is None or any(group.parent != panel for group in groups):
        return None
    return panel.parent


def application(name):
    desktop = pyatspi.Registry.getDesktop(0)
    for app in desktop:
        if app is not None and app.name == name:
            return app
    return None


def press(node, action_names=("Press", "press", "click")):
    """The action a click would be (a toggle alone sends no click)."""
    action = node.queryAction()
    names = [action.getName(i) for i in range(action.nActions)]
    for wanted in action_names:
        if wanted in names:
            return action.doAction(names.index(wanted))
    raise RuntimeError("%s has no press action" % describe(node))
