"""The pictures of the status icon, to be recognised on the bus and on the screen."""

from PIL import Image, ImageChops, ImageStat

from session import RESOURCES

STILL = "100B13"
FRAMES = [f"kvuA{number}" for number in range(1, 9)]
EXACT = 3  # levels of 255: what rounding makes of half-transparent pixels
ALIKE = 6  # levels of 255 on the mean: less than two of the pictures differ by


def load(name, size):
    return Image.open(RESOURCES / f"Images/{name}-{size}.png").convert("RGBA")


def on_ground(picture, colour):
    return Image.alpha_composite(Image.new("RGBA", picture.size, colour), picture).convert("RGB")


def is_same(one, other):
    differences = [ImageChops.difference(on_ground(one, ground), on_ground(other, ground))
                   for ground in ("black", "white")]
    return all(high <= EXACT for each in differences for _, high in each.getextrema())


def name_of(picture):
    """The name of the one picture that this is, at its own size."""
    names = [name for name in [STILL, *FRAMES] if is_same(picture, load(name, picture.width))]
    return names[0] if len(names) == 1 else None


def name_on_screen(screen):
    """The picture that a part of the screen shows, at whatever size, on the colour of its corner.

    None when it shows something else, or nothing."""
    ground = screen.getpixel((0, 0))
    box = ImageChops.difference(screen, Image.new("RGB", screen.size, ground)).getbbox()
    if box is None or min(box[2] - box[0], box[3] - box[1]) < 12:
        return None
    shown = screen.crop(box)

    def distance(name, size):
        picture = on_ground(load(name, size).resize(shown.size), ground + (255,))
        return sum(ImageStat.Stat(ImageChops.difference(shown, picture)).mean) / 3

    # A panel may take another size than its own and scale it. The sizes from 32 on look alike.
    distances = {name: min(distance(name, size) for size in (22, 24, 32))
                 for name in [STILL, *FRAMES]}
    best = min(distances, key=distances.get)
    return best if distances[best] <= ALIKE else None
