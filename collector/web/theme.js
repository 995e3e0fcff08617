// Before the page is drawn: the theme that was chosen here before, so that a dark page does not flash.
const chosenTheme = localStorage.getItem("theme");
if (chosenTheme) document.documentElement.dataset.theme = chosenTheme;
