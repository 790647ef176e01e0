import os
import re

DOC = os.path.join(os.path.dirname(__file__), "..", "..", "docs", "python.md")


def test_the_worked_example_of_the_docs_runs(tmp_path, monkeypatch):
    text = open(DOC, encoding="utf-8").read()
    example = re.search(r"## A bouncing ball.*?```python\n(.*?)```", text, re.S).group(1)
    monkeypatch.chdir(tmp_path)
    exec(compile(example, "docs/python.md", "exec"), {})
    assert (tmp_path / "bounce.vxr").exists()
