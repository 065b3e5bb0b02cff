#!/usr/bin/env python3
"""Writes the application's named images (SVG) and the Qt resource list that embeds them.

Run from this folder after changing a drawing; the output is committed. Names follow what the
scanners put into CleanupEntry::Icon::image ("OS/iOS/17", "Devices/iPadIcon", "Files/XCArchive")
and the shipped fallbacks of the system images ("system/folder", ...).
"""
import os
import re

FAMILIES = {  # family: (versions drawn, colour top, colour bottom)
    "iOS": (list(range(2, 19)) + [26], "#4f8df7", "#2a5fcf"),
    "watchOS": (list(range(2, 12)) + [26], "#5a5a64", "#2e2e36"),
    "tvOS": (list(range(9, 19)) + [26], "#8a8f99", "#5b606b"),
    "macOS": (list(range(12, 16)) + [26], "#9b6cf0", "#6a3fc4"),
    "visionOS": ([2, 26], "#48b6c4", "#237f8c"),
}

def badge(top, bottom, caption, number):
    big = f'<text x="32" y="47" font-family="DejaVu Sans" font-weight="bold" font-size="{26 if len(number) < 3 else 20}" text-anchor="middle" fill="#ffffff">{number}</text>' if number else ""
    cap_y = 24 if number else 38
    cap_size = 11 if len(caption) > 5 else 13
    if not number:
        cap_size = 12 if len(caption) > 5 else 16
    return f'''<svg xmlns="http://www.w3.org/2000/svg" width="64" height="64" viewBox="0 0 64 64">
<defs><linearGradient id="g" x1="0" y1="0" x2="0" y2="1"><stop offset="0" stop-color="{top}"/><stop offset="1" stop-color="{bottom}"/></linearGradient></defs>
<rect x="4" y="4" width="56" height="56" rx="13" fill="url(#g)"/>
<rect x="4.5" y="4.5" width="55" height="55" rx="12.5" fill="none" stroke="#000000" stroke-opacity="0.15"/>
<text x="32" y="{cap_y}" font-family="DejaVu Sans" font-size="{cap_size}" text-anchor="middle" fill="#ffffff" fill-opacity="0.9">{caption}</text>
{big}
</svg>
'''

STROKE = 'fill="none" stroke="#4a4f57" stroke-width="3" stroke-linejoin="round" stroke-linecap="round"'
DRAWINGS = {
    "Devices/iPadIcon": f'<rect x="14" y="6" width="36" height="52" rx="5" fill="#e9edf2" {STROKE[12:]}/><rect x="18" y="11" width="28" height="40" rx="1" fill="#4f8df7"/><circle cx="32" cy="54.5" r="1.6" fill="#4a4f57"/>',
    "Devices/WatchIcon": f'<rect x="23" y="3" width="18" height="12" rx="3" fill="#8a8f99"/><rect x="23" y="49" width="18" height="12" rx="3" fill="#8a8f99"/><rect x="16" y="14" width="32" height="36" rx="9" fill="#e9edf2" {STROKE[12:]}/><rect x="21" y="19" width="22" height="26" rx="5" fill="#2e2e36"/><rect x="48" y="26" width="3" height="8" rx="1" fill="#4a4f57"/>',
    "Devices/AppleTVIcon": f'<rect x="8" y="22" width="48" height="22" rx="5" fill="#2e2e36" {STROKE[12:]}/><text x="32" y="38" font-family="DejaVu Sans" font-weight="bold" font-size="12" text-anchor="middle" fill="#ffffff">tv</text><rect x="14" y="46" width="36" height="3" rx="1.5" fill="#8a8f99"/>',
    "Devices/VisionProIcon": f'<path d="M8 28 Q8 18 20 18 L44 18 Q56 18 56 28 L56 36 Q56 46 46 46 Q38 46 35 40 Q32 36 29 40 Q26 46 18 46 Q8 46 8 36 Z" fill="#2e2e36" {STROKE[12:]}/><path d="M13 29 Q13 23 21 23 L43 23 Q51 23 51 29" fill="none" stroke="#48b6c4" stroke-width="2.5" stroke-linecap="round"/>',
    "Devices/MacBookIcon": f'<rect x="12" y="12" width="40" height="30" rx="3" fill="#e9edf2" {STROKE[12:]}/><rect x="16" y="16" width="32" height="22" fill="#9b6cf0"/><path d="M4 46 L60 46 L56 52 L8 52 Z" fill="#c3c8d0" {STROKE[12:]}/>',
    "Files/XCArchive": f'<path d="M8 20 L32 8 L56 20 L56 46 L32 58 L8 46 Z" fill="#f2c14e" {STROKE[12:]}/><path d="M8 20 L32 32 L56 20 M32 32 L32 58" {STROKE}/><path d="M20 14 L44 26" stroke="#4a4f57" stroke-width="2"/>',
    "system/folder": '<path d="M6 14 Q6 10 10 10 L24 10 L29 16 L54 16 Q58 16 58 20 L58 50 Q58 54 54 54 L10 54 Q6 54 6 50 Z" fill="#5f9bd8"/><path d="M6 22 L58 22 L58 50 Q58 54 54 54 L10 54 Q6 54 6 50 Z" fill="#79b0ea"/>',
    "system/computer": f'<rect x="6" y="8" width="52" height="36" rx="4" fill="#e9edf2" {STROKE[12:]}/><rect x="11" y="13" width="42" height="26" fill="#4f8df7"/><path d="M26 44 L24 54 L40 54 L38 44" fill="#c3c8d0" {STROKE[12:]}/><path d="M18 56 L46 56" {STROKE}/>',
    "system/network": f'<circle cx="32" cy="32" r="24" fill="#79b0ea" {STROKE[12:]}/><path d="M8 32 L56 32 M32 8 Q20 32 32 56 M32 8 Q44 32 32 56 M13 20 L51 20 M13 44 L51 44" {STROKE} stroke-width="2"/>',
    "system/trash-full": f'<path d="M14 18 L50 18 L46 58 L18 58 Z" fill="#c3c8d0" {STROKE[12:]}/><path d="M10 18 L54 18 M26 18 L26 12 L38 12 L38 18 M25 26 L26 50 M32 26 L32 50 M39 26 L38 50" {STROKE}/><path d="M18 17 Q20 6 30 10 Q36 2 44 10 Q50 8 48 17" fill="#f2c14e" {STROKE[12:]} stroke-width="2"/>',
    "system/multiple-documents": f'<rect x="20" y="6" width="32" height="40" rx="3" fill="#c3c8d0" {STROKE[12:]}/><rect x="12" y="16" width="32" height="42" rx="3" fill="#ffffff" {STROKE[12:]}/><path d="M18 28 L38 28 M18 36 L38 36 M18 44 L32 44" {STROKE} stroke-width="2"/>',
}

def single_stroke_width(body):
    """A drawing that asks for a thinner line than STROKE keeps only its own width."""
    def fix(tag):
        text = tag.group(0)
        if text.count("stroke-width=") > 1:
            text = re.sub(r' stroke-width="[^"]*"', "", text, count=1)
        return text
    return re.sub(r"<[^>]+>", fix, body)


def write(name, body):
    body = single_stroke_width(body)
    path = name + ".svg"
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w") as f:
        f.write(body)
    return path

files = []
for family, (versions, top, bottom) in FAMILIES.items():
    for version in versions:
        files.append(write(f"OS/{family}/{version}", badge(top, bottom, family, str(version))))
    files.append(write(f"OS/{family}/Generic", badge(top, bottom, family, "")))
for name, drawing in DRAWINGS.items():
    files.append(write(name, f'<svg xmlns="http://www.w3.org/2000/svg" width="64" height="64" viewBox="0 0 64 64">\n{drawing}\n</svg>\n'))
files.append("AppIcon.svg")

with open("../images.qrc", "w") as f:
    f.write('<!DOCTYPE RCC>\n<RCC version="1.0">\n<qresource prefix="/images">\n')
    for path in sorted(files):
        f.write(f'  <file alias="{path}">images/{path}</file>\n')
    f.write("</qresource>\n</RCC>\n")
