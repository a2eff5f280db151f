"""Draws the pictures of the demo's clip, one after the other, as raw BGRX on standard output.

Balloons at dawn: each has its colour written on it, so that swapped colours are seen. The white line
and the blocks around the edge show a shifted or cut picture, the rays of the sun a lost row.
"""

import math
import sys

import cairo

WIDTH, HEIGHT, PICTURES = 640, 360, 125
HORIZON = 262
SUN = (430, HORIZON - 26)


def rgb(text, alpha=1.0):
    return [int(text[i : i + 2], 16) / 255 for i in (0, 2, 4)] + [alpha]


def fill_gradient(c, top, bottom, *stops):
    gradient = cairo.LinearGradient(0, top, 0, bottom)
    for place, color in stops:
        gradient.add_color_stop_rgba(place, *rgb(color))
    c.set_source(gradient)
    c.fill()


def draw_sky(c):
    c.rectangle(0, 0, WIDTH, HORIZON)
    fill_gradient(c, 0, HORIZON, (0, "1d2f6f"), (0.55, "a0609a"), (0.85, "f59a6c"), (1, "ffd9a0"))
    c.set_line_width(1.2)
    for ray in range(24):
        angle = math.pi * (ray + 0.5) / 24
        c.move_to(*SUN)
        c.rel_line_to(700 * math.cos(angle), -700 * math.sin(angle))
        c.set_source_rgba(*rgb("fff0c8", 0.38))
        c.stroke()
    c.arc(*SUN, 34, 0, 2 * math.pi)
    c.set_source_rgba(*rgb("fff3cf"))
    c.fill()


def draw_hills(c, time):
    for height, length, speed, color in (
        (58, 260, 3, "6d4f83"),
        (40, 190, 7, "4b3a6b"),
        (22, 130, 14, "2c2850"),
    ):
        c.move_to(0, HORIZON)
        for x in range(0, WIDTH + 1, 4):
            phase = (x + speed * time) * 2 * math.pi / length
            ridge = 0.55 + 0.3 * math.sin(phase) + 0.15 * math.sin(2.7 * phase + height)
            c.line_to(x, HORIZON - height * ridge)
        c.line_to(WIDTH, HORIZON)
        c.set_source_rgba(*rgb(color))
        c.fill()


def draw_lake(c, time):
    c.rectangle(0, HORIZON, WIDTH, HEIGHT - HORIZON)
    fill_gradient(c, HORIZON, HEIGHT, (0, "e8a27c"), (0.25, "8a5c8e"), (1, "1a2350"))
    c.set_source_rgba(*rgb("ffe9b8", 0.8))
    for row in range(12):
        y = HORIZON + 5 + row * row * 0.75
        half = (46 - 2.4 * row) * (0.8 + 0.2 * math.sin(1.7 * row + 3 * time))
        c.rectangle(SUN[0] - half, y, 2 * half, 1.2 + row * 0.16)
    c.fill()


def draw_balloon(c, x, y, size, color, dark, name):
    c.save()
    c.translate(x, y)
    c.scale(size, size)
    c.set_line_width(0.025)
    c.set_source_rgba(*rgb("201830"))
    for side in (-1, 1):
        c.move_to(side * 0.62, 0.72)
        c.line_to(side * 0.15, 1.52)
    c.stroke()
    c.rectangle(-0.17, 1.5, 0.34, 0.26)
    c.set_source_rgba(*rgb("7a4a24"))
    c.fill()
    c.move_to(-0.2, 1.22)
    c.curve_to(-0.45, 0.8, -1, 0.5, -1, 0)
    c.curve_to(-1, -1.34, 1, -1.34, 1, 0)
    c.curve_to(1, 0.5, 0.45, 0.8, 0.2, 1.22)
    c.close_path()
    c.set_source_rgba(*rgb(color))
    c.fill_preserve()
    c.clip()
    c.set_source_rgba(*rgb(dark))
    for gore in (-0.82, -0.3, 0.3, 0.82):
        c.save()
        c.translate(gore * 0.9, 0)
        c.scale(0.13, 1.3)
        c.arc(0, 0, 1, 0, 2 * math.pi)
        c.restore()
        c.fill()
    c.rectangle(-1, -0.25, 2, 0.46)
    c.set_source_rgba(*rgb("ffffff"))
    c.fill()
    c.select_font_face("DejaVu Sans", cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_BOLD)
    c.set_font_size(0.42)
    c.set_source_rgba(*rgb(dark))
    c.move_to(-c.text_extents(name).x_advance / 2, 0.13)
    c.show_text(name)
    c.restore()


def draw_edge(c):
    block = 20
    for x in range(0, WIDTH, block):
        for y in range(0, HEIGHT, block):
            c.rectangle(x, y, block, block)
            c.set_source_rgba(*rgb("f4f4f4" if (x + y) // block % 2 else "101018"))
            c.fill()


def draw_picture(c, time):
    draw_edge(c)
    c.save()
    c.rectangle(8, 8, WIDTH - 16, HEIGHT - 16)
    c.clip()
    draw_sky(c)
    draw_hills(c, time)
    draw_lake(c, time)
    bob = [6 * math.sin(1.3 * time + phase) for phase in (0, 2, 4, 1)]
    draw_balloon(c, 590 - 13 * time, 66 + bob[3], 21, "ffd21f", "b07a00", "")
    draw_balloon(c, 120 + 15 * time, 106 + bob[0], 62, "f03a34", "a01018", "RED")
    draw_balloon(c, 285 + 9 * time, 92 + bob[1], 48, "3ec24a", "0f7a24", "GREEN")
    draw_balloon(c, 452 + 20 * time, 120 + bob[2], 56, "3f7cf4", "1a3db0", "BLUE")
    c.restore()
    c.rectangle(0.5, 0.5, WIDTH - 1, HEIGHT - 1)
    c.set_line_width(1)
    c.set_source_rgba(*rgb("ffffff"))
    c.stroke()


def main():
    surface = cairo.ImageSurface(cairo.FORMAT_RGB24, WIDTH, HEIGHT)
    for picture in range(PICTURES):
        draw_picture(cairo.Context(surface), picture / 25)
        surface.flush()
        sys.stdout.buffer.write(surface.get_data())


main()
