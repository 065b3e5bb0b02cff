#!/usr/bin/env python3
"""Writes a home folder of realistic shape for the project-walk benchmark: about 200
projects of mixed kinds (with node_modules, target, build, .venv, Pods ... inside) among
ordinary source trees, documents and a Library folder, about 300,000 entries in all."""
import os
import random
import sys

random.seed(7)
home = sys.argv[1]
target_entries = int(sys.argv[2]) if len(sys.argv) > 2 else 300_000
entries = 0


def touch(path, size=0):
    global entries
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        if size:
            f.write(b"x" * size)
    entries += 1


def tree(root, depth, fanout, files, prefix="f"):
    """An ordinary folder tree: `files` files per folder, `fanout` folders per level."""
    global entries
    stack = [(root, 0)]
    while stack:
        folder, level = stack.pop()
        os.makedirs(folder, exist_ok=True)
        entries += 1
        for i in range(files):
            touch(os.path.join(folder, f"{prefix}{i}.txt"), random.randint(1, 200))
        if level < depth:
            for i in range(fanout):
                stack.append((os.path.join(folder, f"d{i}"), level + 1))


def node_modules(project, packages):
    for p in range(packages):
        pkg = os.path.join(project, "node_modules", f"pkg{p}")
        touch(os.path.join(pkg, "package.json"), 50)
        tree(os.path.join(pkg, "lib"), 1, 2, 3)


PROJECTS = [
    ("rust", "Cargo.toml", lambda p: tree(os.path.join(p, "target", "debug"), 2, 4, 6)),
    ("node", "package.json", lambda p: (node_modules(p, 40), tree(os.path.join(p, ".next"), 1, 3, 4))),
    ("swift", "Package.swift", lambda p: tree(os.path.join(p, ".build"), 2, 3, 5)),
    ("cmake", "CMakeLists.txt", lambda p: tree(os.path.join(p, "build"), 2, 3, 5)),
    ("gradle", "build.gradle", lambda p: (tree(os.path.join(p, "build"), 2, 3, 4), tree(os.path.join(p, ".gradle"), 1, 2, 3))),
    ("python", "pyproject.toml", lambda p: tree(os.path.join(p, ".venv", "lib", "python3.11", "site-packages"), 2, 4, 5)),
    ("ios", "Podfile", lambda p: tree(os.path.join(p, "Pods"), 2, 4, 4)),
    ("flutter", "pubspec.yaml", lambda p: (tree(os.path.join(p, "build"), 2, 3, 4), tree(os.path.join(p, ".dart_tool"), 1, 2, 3))),
]

projects = 0
while projects < 200:
    name, marker, fill = PROJECTS[projects % len(PROJECTS)]
    group = random.choice(["Developer", "code", "work/clients", "src/github.com/org"])
    project = os.path.join(home, group, f"{name}-{projects}")
    touch(os.path.join(project, marker), 100)
    tree(os.path.join(project, "src"), 2, 3, 6, prefix="s")
    tree(os.path.join(project, ".git", "objects"), 1, 8, 4)
    fill(project)
    projects += 1

# Ordinary trees the walk must cross: documents, notes, a Library it must skip.
tree(os.path.join(home, "Documents"), 4, 5, 6)
tree(os.path.join(home, "Library", "Caches"), 3, 6, 6)
spread = 0
while entries < target_entries:
    tree(os.path.join(home, "Archive", f"batch{spread}"), 3, 5, 8)
    spread += 1
print(f"{entries} entries, {projects} projects in {home}")
