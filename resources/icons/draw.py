#!/usr/bin/env python3
"""Writes the vector sources of the icons into this folder.

The pictures differ only in how the ring is lit, so they are written by a program: change the
numbers here, run this, then scripts/render-icons. docs/icons.md says what each picture means.

A tray picture is drawn on a grid of 64, of which 64, 48 and 32 pixels are whole parts. At 16, 22
and 24 pixels that drawing would fall between pixels, so each of them has one of its own, in which
every edge lies on a pixel and the arrow is a staircase.
"""

import dataclasses
import pathlib

STILL = "100B13"
FRAMES = [f"kvuA{number}" for number in range(1, 9)]
TRAY_NAMES = [STILL, *FRAMES]
APPLICATION = "kvscheduler"

# A tray does not tell the colour of its panel. This blue stands out from light and dark alike;
# the mark lies within it, so it never meets the panel.
BODY = "#1d75a6"
MARK = "#ffffff"
HEAD = "#ffd24a"

# How strongly the mark's colour covers a segment. The tail after the head shows which way it runs.
RESTING = (MARK, 0.35)
WAITING = (MARK, 0.2)
TAIL = [(HEAD, 1), (MARK, 0.7), (MARK, 0.42)]


@dataclasses.dataclass(frozen=True)
class Layout:
    """Measures of one drawing, in pixels of its own size. What is centred has an even width."""

    size: int
    radius: float  # of the body's corners
    inset: int  # from the body's edge to the ring
    thickness: int  # of the ring
    corner: int  # the arms of a corner segment
    side: int  # the length of a side segment
    stem: tuple  # of the arrow: width, height
    head: tuple
    gap: int  # between the arrow and the drive
    drive: tuple
    lamp: int  # a square hole in the drive, by its right end
    lamp_inset: int
    stepped: bool = True


MASTER = Layout(size=64, radius=12, inset=4, thickness=8, corner=16, side=16, stem=(8, 8),
                head=(20, 10), gap=2, drive=(32, 12), lamp=4, lamp_inset=4, stepped=False)
SMALL = [
    Layout(size=16, radius=3, inset=1, thickness=2, corner=4, side=4, stem=(2, 2), head=(6, 3),
           gap=1, drive=(8, 3), lamp=1, lamp_inset=1),
    Layout(size=22, radius=4, inset=2, thickness=2, corner=5, side=6, stem=(2, 3), head=(8, 4),
           gap=1, drive=(10, 4), lamp=2, lamp_inset=1),
    Layout(size=24, radius=4.5, inset=2, thickness=3, corner=6, side=6, stem=(2, 3), head=(8, 4),
           gap=1, drive=(10, 4), lamp=2, lamp_inset=1),
]


def box(x, y, width, height):
    return f"M{x:g} {y:g}h{width:g}v{height:g}h{-width:g}z"


def path(outline, colour=MARK, opacity=1, turn=""):
    strength = f' fill-opacity="{opacity:g}"' if opacity != 1 else ""
    return f'  <path d="{outline}" fill="{colour}"{strength}{turn}/>'


def ring(layout, lights):
    """Eight segments, clockwise from the middle of the top; lights has a (colour, opacity) each."""
    middle = layout.size / 2
    end = layout.size - layout.inset
    arm, thick = layout.corner, layout.thickness
    round_ = layout.radius - layout.inset
    side = box(middle - layout.side / 2, layout.inset, layout.side, thick)
    corner = (f"M{end - arm:g} {layout.inset:g}h{arm - round_:g}"
              f"a{round_:g} {round_:g} 0 0 1 {round_:g} {round_:g}v{arm - round_:g}"
              f"h{-thick:g}v{thick - arm:g}h{thick - arm:g}z")
    for number, (colour, opacity) in enumerate(lights):
        angle = number // 2 * 90
        turn = f' transform="rotate({angle} {middle:g} {middle:g})"' if angle else ""
        yield path(corner if number % 2 else side, colour, opacity, turn)


def mark(layout):
    """An arrow that points down into a drive."""
    middle = layout.size / 2
    stem_width, stem_height = layout.stem
    head_width, head_height = layout.head
    width, height = layout.drive
    # An odd rest goes below: the stem of the arrow may come near the ring, the broad drive may not.
    top = (layout.size - stem_height - head_height - layout.gap - height) // 2
    shoulder = top + stem_height
    stem = box(middle - stem_width / 2, top, stem_width, stem_height)
    if layout.stepped:
        steps = [box(middle - head_width / 2 + step, shoulder + step, head_width - 2 * step, 1)
                 for step in range(head_height)]
        yield path(stem + "".join(steps))
    else:
        half = head_width / 2
        yield path(f"{stem}M{middle - half:g} {shoulder:g}h{head_width:g}"
                   f"l{-half:g} {head_height:g}z")
    lid = shoulder + head_height + layout.gap
    left = middle - width / 2
    round_ = layout.size / 32
    yield (f'  <rect x="{left:g}" y="{lid:g}" width="{width:g}" height="{height:g}" '
           f'rx="{round_:g}" fill="{MARK}"/>')
    lamp = layout.lamp
    yield path(box(left + width - layout.lamp_inset - lamp, lid + (height - lamp) / 2, lamp, lamp),
               BODY)


def lights(name):
    """How the ring of a tray picture is lit: evenly at rest, with a running light in the frames."""
    if name == STILL:
        return [RESTING] * 8
    lit = [WAITING] * 8
    for behind, light in enumerate(TAIL):
        lit[FRAMES.index(name) - behind] = light
    return lit


def document(size, title, parts):
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{size}" height="{size}" '
        f'viewBox="0 0 {size} {size}">', f"  <title>{title}</title>", *parts, "</svg>", ""])


def tray(name, layout):
    body = (f'  <rect width="{layout.size}" height="{layout.size}" rx="{layout.radius:g}" '
            f'fill="{BODY}"/>')
    title = "No backup runs" if name == STILL else f"A backup runs, {name[-1]} of 8"
    return document(layout.size, title, [body, *ring(layout, lights(name)), *mark(layout)])


def application():
    """The tray picture's big sister: the same mark with shading, its ring stopped in mid-run."""
    layout = dataclasses.replace(MASTER, inset=5, thickness=6, corner=16, side=15, radius=14)
    drive = """\
  <path d="M28 14h8v9h7L32 33.5 21 23h7z" fill="#fff"/>
  <path d="M19 36h26l3 5H16z" fill="#dfe9f0"/>
  <path d="M16 41h32v7a2 2 0 0 1-2 2H18a2 2 0 0 1-2-2z" fill="#fff"/>
  <path d="M20 44.5h12v2H20z" fill="#9bb4c4"/>
  <circle cx="43" cy="45.5" r="2" fill="#2fae66"/>"""
    shade = """\
  <defs>
    <linearGradient id="body" x2="0" y2="1">
      <stop offset="0" stop-color="#2c8dc0"/>
      <stop offset="1" stop-color="#155a83"/>
    </linearGradient>
  </defs>
  <rect x="1" y="1" width="62" height="62" rx="14" fill="url(#body)"/>
  <rect x="1.5" y="1.5" width="61" height="61" rx="13.5" fill="none" stroke="#0e3f5d"
        stroke-opacity=".6"/>"""
    return document(64, "KVScheduler", [shade, *ring(layout, lights("kvuA2")), drive])


def drawings():
    """Every source by its file name. The small sizes carry their size in the name."""
    written = {f"{APPLICATION}.svg": application()}
    for name in TRAY_NAMES:
        written[f"{name}.svg"] = tray(name, MASTER)
        for layout in SMALL:
            written[f"{name}-{layout.size}.svg"] = tray(name, layout)
    return written


if __name__ == "__main__":
    for file_name, text in drawings().items():
        (pathlib.Path(__file__).parent / file_name).write_text(text, encoding="utf-8")
