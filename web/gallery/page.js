for (const compare of document.querySelectorAll(".compare")) {
  const range = compare.querySelector("input");
  const show = () => {
    compare.style.setProperty("--split", `${range.value}%`);
    range.setAttribute("aria-valuetext", `${Math.round(range.value)} percent before`);
  };
  range.addEventListener("input", show);
  show();
}

for (const command of document.querySelectorAll(".command")) {
  const code = command.querySelector("code");
  const button = command.querySelector("button");
  button.addEventListener("click", async () => {
    getSelection().selectAllChildren(code);
    try {
      await navigator.clipboard.writeText(code.textContent);
      button.textContent = "Copied";
    } catch {
      button.textContent = "Selected"; // no clipboard here: the usual keys copy what is selected
    }
    setTimeout(() => (button.textContent = "Copy"), 2000);
  });
}
