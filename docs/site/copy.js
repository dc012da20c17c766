// Copies the default of an input, as it stands in a document.
document.addEventListener("click", async event => {
    const button = event.target.closest("button.copy");
    if (!button) return;
    await navigator.clipboard.writeText(button.dataset.text);
    button.dataset.done = "copied";
    setTimeout(() => delete button.dataset.done, 1500);
});
