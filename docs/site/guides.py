"""Pages from Markdown. A guide is run as it is read: its files are written, its commands run, its output compared.

    ```json first.json      a file that the guide has the reader write; documents are checked, but `wrong...`
    ```sh                   commands, run in the guide's own folder
    ```output               what the last commands print
    ```cpp path/of/a.cpp    a part of a file of the project, as it stands there; a new one has to compile
    ```py first.py          a program that the guide has the reader write
    ```py path/of/a.py      a whole program of the project, which the commands run by its name
    ![alt](first.png)       a picture that the commands made
"""
import os
import re
import shutil
import subprocess
import sys
from html import escape
from pathlib import Path

import markdown

from pictures import ROOT

BLOCK = re.compile(r"^```(\w*)(?: +(\S+))?\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def highlight_json(text):
    """Keys, texts and numbers in colours."""
    token = re.compile(r'("(?:[^"\\]|\\.)*")(\s*:)?|(-?\b\d[\d.eE+-]*|\btrue\b|\bfalse\b|\bnull\b)')

    def span(match):
        string, colon, other = match.groups()
        kind = "n" if other else "k" if colon else "s"
        return f'<span class="{kind}">{escape(string or other, quote=False)}</span>{colon or ""}'

    pieces, end = [], 0
    for match in token.finditer(text):
        pieces += [escape(text[end:match.start()], quote=False), span(match)]
        end = match.end()
    return "".join(pieces) + escape(text[end:], quote=False)


class Guide:
    """One Markdown file. A guide has a folder, in which what it says is done; a page of reference has none."""

    def __init__(self, path, baker, folder=None, text=None):
        self.path = path
        self.name = path.relative_to(ROOT).as_posix()
        self.baker = baker
        self.folder = folder
        self.text = text or path.read_text()
        self.pictures = {}
        self.title = re.search(r"^# (.+)$", self.text, re.MULTILINE).group(1)
        # The first paragraph.
        self.help = re.sub(r"\[([^]]+)\]\([^)]*\)", r"\1", " ".join(self.text.split("\n\n")[1].split())).replace("`", "")
        if folder:
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir(parents=True)

    def fault(self, text):
        self.baker.faults.append(f"{self.name}: {text}")

    def run(self):
        """Does what the guide says, in its order."""
        printed = ""
        for kind, file, body in BLOCK.findall(self.text) if self.folder else []:
            if kind == "output":
                if body != printed:
                    self.fault(f"the output is\n{printed}\nnot\n{body}")
            elif kind == "sh" and not file:
                printed = self.shell(body)
            elif kind == "json" and file and "/" not in file:
                path = self.folder / file
                path.write_text(body)
                if '"version"' in body and not file.startswith("wrong"):
                    self.baker.run("check", path, place=f"{self.name}: {file}")
            elif kind == "py" and file:
                path = self.folder / Path(file).name
                path.write_text(body)
                if "/" in file and body != (ROOT / file).read_text():
                    self.fault(f"what it shows is not {file}")
            elif file and (ROOT / file).exists():
                if body not in (ROOT / file).read_text():
                    self.fault(f"what it shows does not stand in {file}")
            elif kind == "cpp" and file:
                self.compile(body, file)
        for alt, target in re.findall(r"!\[([^]]*)\]\(([^)]+)\)", self.text):
            made = self.folder and self.folder / target
            at = made if made and made.exists() else self.path.parent / target
            if not at.exists():
                self.fault(f"no command makes {target}")
            if not alt:
                self.fault(f"{target} has no words for those who do not see it")
            self.pictures[target] = at

    def compile(self, body, file):
        done = subprocess.run([os.environ.get("CXX", "g++"), "-std=c++20", "-fsyntax-only", "-x", "c++", "-I.", "-Iinclude",
                               "-iquote", (ROOT / file).parent, "-Wall", "-Wextra", "-Werror", "-"],
                              input=body, capture_output=True, text=True, check=False, cwd=ROOT)
        if done.returncode:
            self.fault(f"{file} does not compile:\n{done.stderr}")

    def shell(self, commands):
        programs = self.folder / ".bin"  # where python3 is the system's, whatever a user has put before it
        programs.mkdir(exist_ok=True)
        if not (programs / "python3").exists():
            (programs / "python3").symlink_to(sys.executable)
        velto = self.baker.velto.parent
        environment = {**os.environ, "PATH": f"{programs}:{velto}:{os.environ['PATH']}", "LC_ALL": "C.UTF-8",
                       "PYTHONPATH": str(velto / "python"), "PYTHONDONTWRITEBYTECODE": "1"}
        done = subprocess.run(["bash", "-euo", "pipefail", "-c", commands], cwd=self.folder, env=environment,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode:
            self.fault(f"exit status {done.returncode} of\n{commands}\n{done.stdout}")
        return done.stdout

    def html(self, url_of):
        """`url_of` gives a link's address on the site, or none for what is no page."""
        kept = []

        def keep(match):
            kind, file, body = match.groups()
            code = highlight_json(body.rstrip("\n")) if kind == "json" else escape(body.rstrip("\n"), quote=False)
            caption = f'<span class="file">{escape(file)}</span>' if file else ""
            label = {"output": "Output", "sh": "Commands"}.get(kind, file or "Code")
            kept.append(f'<div class="code {kind}">{caption}<pre tabindex="0" role="region" '
                        f'aria-label="{escape(label)}"><code>{code}</code></pre></div>')
            return f"\n\nKEPT{len(kept) - 1}BLOCK\n\n"

        body = markdown.markdown(BLOCK.sub(keep, self.text), extensions=["tables", "toc", "sane_lists"])
        body = re.sub(r"<p>KEPT(\d+)BLOCK</p>", lambda m: kept[int(m.group(1))], body)
        body = re.sub(r"<pre><code>", '<pre tabindex="0" role="region" aria-label="Code"><code>', body)
        body = body.replace("<table>", '<div class="wide" tabindex="0" role="region" aria-label="Table"><table>')
        body = body.replace("</table>", "</table></div>").replace("<th>", '<th scope="col">')

        def link(match):
            target, words = match.groups()
            if re.match(r"[a-z]+:|#", target):
                return match.group(0)
            file, _, fragment = target.partition("#")
            url = url_of((self.path.parent / file).resolve())
            if url is None:
                return words
            return f'<a href="{url}{"#" + fragment if fragment else ""}">{words}</a>'

        body = re.sub(r'<a href="([^"]+)">(.*?)</a>', link, body, flags=re.DOTALL)
        return re.sub(r'<img alt="([^"]*)" src="([^"]+)"\s*/?>',
                      lambda m: f'<img alt="{m.group(1)}" src="{url_of(self.pictures[m.group(2)].resolve())}">'
                      if m.group(2) in self.pictures else m.group(0), body)
